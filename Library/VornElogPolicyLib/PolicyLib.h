// Life of the policy engine.
#pragma once

#include "Platform/Services.h"

// Locates the engine's protocols, reads the logging mode, makes the record buffers, queues and DIMM accounting, and
// registers the engine's own SMI handlers. A protocol that is missing ends it at once with the status of the search;
// everything else that fails is traced and left out. Returns the status of the last step, the registration of the
// software SMI by which the OS asks for the DPC check.
EFI_STATUS VornElogPolicyLibConstructorSmm(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

// Takes back every registration of the constructor and frees every block that it allocated. May be called after a
// constructor that failed anywhere, and more than once. Returns the statuses of all steps ORed.
EFI_STATUS VornElogPolicyLibDestructorSmm(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);
