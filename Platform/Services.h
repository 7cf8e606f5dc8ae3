// Boot services (UEFI 2.10, section 4) and the SMM system table (PI 1.8, volume 4, section 3).
// Members in slot order; those that the driver never calls are kept as untyped slots.
#pragma once

#include "Platform/Base.h"

enum class EFI_MEMORY_TYPE : UINT32 { EfiRuntimeServicesData = 6 };
using enum EFI_MEMORY_TYPE;

struct EFI_TABLE_HEADER {
    UINT64 Signature;
    UINT32 Revision;
    UINT32 HeaderSize;
    UINT32 CRC32;
    UINT32 Reserved;
};

struct EFI_BOOT_SERVICES {
    EFI_TABLE_HEADER Hdr;
    void* TaskPriorityServices[2];
    void* PageServices[3];
    // Size in bytes; 0 is a valid size and yields a block of its own.
    EFI_STATUS (*AllocatePool)(EFI_MEMORY_TYPE PoolType, UINTN Size, void** Buffer);
    EFI_STATUS (*FreePool)(void* Buffer);
    void* EventServices[6];
    void* ProtocolHandlerServices[9];
    void* ImageServices[5];
    void* MiscellaneousServices[3];
    void* DriverSupportServices[2];
    void* OpenProtocolServices[3];
    void* LibraryHandleServices[2];
    // EFI_NOT_FOUND when no instance is installed.
    EFI_STATUS (*LocateProtocol)(const EFI_GUID* Protocol, void* Registration, void** Interface);
    void* InstallMultipleProtocolInterfaces;
    void* UninstallMultipleProtocolInterfaces;
    void* CalculateCrc32;
    void (*CopyMem)(void* Destination, const void* Source, UINTN Length);
    void (*SetMem)(void* Buffer, UINTN Size, UINT8 Value);
    void* CreateEventEx;
};
static_assert(offsetof(EFI_BOOT_SERVICES, AllocatePool) == 0x40);
static_assert(offsetof(EFI_BOOT_SERVICES, LocateProtocol) == 0x140);
static_assert(offsetof(EFI_BOOT_SERVICES, SetMem) == 0x168);
static_assert(sizeof(EFI_BOOT_SERVICES) == 0x178);

struct EFI_SYSTEM_TABLE {
    EFI_TABLE_HEADER Hdr;
    CHAR16* FirmwareVendor;
    UINT32 FirmwareRevision;
    EFI_HANDLE ConsoleInHandle;
    void* ConIn;
    EFI_HANDLE ConsoleOutHandle;
    void* ConOut;
    EFI_HANDLE StandardErrorHandle;
    void* StdErr;
    void* RuntimeServices;
    EFI_BOOT_SERVICES* BootServices;
    UINTN NumberOfTableEntries;
    void* ConfigurationTable;
};
static_assert(offsetof(EFI_SYSTEM_TABLE, BootServices) == 0x60);

// A handler for SMIs. CommBuffer and CommBufferSize come from outside SMRAM and may be anything.
using EFI_SMM_HANDLER_ENTRY_POINT2 = EFI_STATUS (*)(EFI_HANDLE DispatchHandle, const void* Context, void* CommBuffer,
                                                    UINTN* CommBufferSize);
using EFI_SMM_NOTIFY_FN = EFI_STATUS (*)(const EFI_GUID* Protocol, void* Interface, EFI_HANDLE Handle);
using EFI_AP_PROCEDURE = void (*)(void* Argument);

enum class EFI_LOCATE_SEARCH_TYPE : UINT32 { AllHandles = 0, ByRegisterNotify = 1, ByProtocol = 2 };
using enum EFI_LOCATE_SEARCH_TYPE;

inline constexpr UINT32 EFI_NATIVE_INTERFACE = 0;

struct EFI_SMM_SYSTEM_TABLE2 {
    EFI_TABLE_HEADER Hdr;
    CHAR16* SmmFirmwareVendor;
    UINT32 SmmFirmwareRevision;
    void* SmmInstallConfigurationTable;
    void* SmmIo[4];
    EFI_STATUS (*SmmAllocatePool)(EFI_MEMORY_TYPE PoolType, UINTN Size, void** Buffer);
    EFI_STATUS (*SmmFreePool)(void* Buffer);
    void* SmmAllocatePages;
    void* SmmFreePages;
    // Starts Procedure(Argument) on the processor and returns; EFI_INVALID_PARAMETER when it cannot.
    EFI_STATUS (*SmmStartupThisAp)(EFI_AP_PROCEDURE Procedure, UINTN CpuNumber, void* Argument);
    UINTN CurrentlyExecutingCpu;
    UINTN NumberOfCpus;
    UINTN* CpuSaveStateSize;
    void** CpuSaveState;
    UINTN NumberOfTableEntries;
    void* SmmConfigurationTable;
    EFI_STATUS(*SmmInstallProtocolInterface)
    (EFI_HANDLE* Handle, const EFI_GUID* Protocol, UINT32 InterfaceType, void* Interface);
    EFI_STATUS (*SmmUninstallProtocolInterface)(EFI_HANDLE Handle, const EFI_GUID* Protocol, void* Interface);
    // The handle's instance of the protocol. EFI_UNSUPPORTED when the handle has none.
    EFI_STATUS (*SmmHandleProtocol)(EFI_HANDLE Handle, const EFI_GUID* Protocol, void** Interface);
    // Function NULL with a Registration made before takes that registration back.
    EFI_STATUS(*SmmRegisterProtocolNotify)
    (const EFI_GUID* Protocol, EFI_SMM_NOTIFY_FN Function, void** Registration);
    // Every handle that the search finds. BufferSize in bytes, in and out: EFI_BUFFER_TOO_SMALL with the size that
    // is needed. EFI_NOT_FOUND when there is none.
    EFI_STATUS(*SmmLocateHandle)
    (EFI_LOCATE_SEARCH_TYPE SearchType, const EFI_GUID* Protocol, void* SearchKey, UINTN* BufferSize,
     EFI_HANDLE* Buffer);
    EFI_STATUS (*SmmLocateProtocol)(const EFI_GUID* Protocol, void* Registration, void** Interface);
    void* SmiManage;
    EFI_STATUS(*SmiHandlerRegister)
    (EFI_SMM_HANDLER_ENTRY_POINT2 Handler, const EFI_GUID* HandlerType, EFI_HANDLE* DispatchHandle);
    EFI_STATUS (*SmiHandlerUnRegister)(EFI_HANDLE DispatchHandle);
};
static_assert(offsetof(EFI_SMM_SYSTEM_TABLE2, SmmAllocatePool) == 0x50);
static_assert(offsetof(EFI_SMM_SYSTEM_TABLE2, SmmStartupThisAp) == 0x70);
static_assert(offsetof(EFI_SMM_SYSTEM_TABLE2, NumberOfCpus) == 0x80);
static_assert(offsetof(EFI_SMM_SYSTEM_TABLE2, SmmHandleProtocol) == 0xB8);
static_assert(offsetof(EFI_SMM_SYSTEM_TABLE2, SmmRegisterProtocolNotify) == 0xC0);
static_assert(offsetof(EFI_SMM_SYSTEM_TABLE2, SmmLocateHandle) == 0xC8);
static_assert(offsetof(EFI_SMM_SYSTEM_TABLE2, SmmLocateProtocol) == 0xD0);
static_assert(offsetof(EFI_SMM_SYSTEM_TABLE2, SmiHandlerRegister) == 0xE0);
static_assert(sizeof(EFI_SMM_SYSTEM_TABLE2) == 0xF0);
