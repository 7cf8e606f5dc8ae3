// The platform's PCI slots.
#pragma once

#include "Platform/Base.h"

// Called when the PCI slot data protocol is installed; keeps its interface in the private data.
EFI_STATUS RetrieveVornPciSlotDataSmmProtocol(const EFI_GUID* Protocol, void* Interface, EFI_HANDLE Handle);
