// What an SMI handler must ask before it touches a buffer that came from outside SMRAM.
#pragma once

#include "Platform/Services.h"

// TRUE when the setup attribute asks for buffers inside the firmware's communication regions only.
extern BOOLEAN VornSmmSecurityMitigationEnabled;

// Finds the memory map and asks to be told of the end of DXE. EFI_SUCCESS, or the status of what failed; without
// a memory map every buffer is refused.
EFI_STATUS SmmMemLibConstructor(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

// Takes the notification back; the status of that.
EFI_STATUS SmmMemLibDestructor(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

// TRUE when Length bytes (at least one) at Buffer do not wrap around, touch no SMRAM and, while
// VornSmmSecurityMitigationEnabled, lie wholly inside one valid communication region.
BOOLEAN SmmIsBufferOutsideSmmValid(UINT64 Buffer, UINT64 Length);

// Whether an SMI handler may read Bytes bytes of its communication buffer: neither pointer is NULL, the buffer holds
// that many and lies wholly, *CommBufferSize bytes of it, where SmmIsBufferOutsideSmmValid allows it. A refusal is
// traced in the name of Caller.
bool IsCommunicationBufferValid(const void* CommBuffer, const UINTN* CommBufferSize, UINTN Bytes,
                                const CHAR8* Caller = __builtin_FUNCTION());

// Notified at the end of DXE: sets VornSmmSecurityMitigationEnabled from the setup attribute
// "SmmSecurityMitigation", FALSE when that cannot be read. The status of the read.
EFI_STATUS VornReadSmmSecurityMitigationSetting(const EFI_GUID* Protocol, void* Interface, EFI_HANDLE Handle);
