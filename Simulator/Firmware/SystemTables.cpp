#include "Simulator/Firmware/SystemTables.h"

#include <cstring>

#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/Names.h"

namespace Simulator {

namespace {

constexpr UINT64 SYSTEM_TABLE_SIGNATURE = 0x5453595320494249;    // "IBI SYST"
constexpr UINT64 BOOT_SERVICES_SIGNATURE = 0x56524553544F4F42;   // "BOOTSERV"
constexpr UINT64 SMM_SYSTEM_TABLE_SIGNATURE = 0x00000054534D53;  // "SMST"
constexpr UINT32 UEFI_REVISION = 2 << 16 | 100;
constexpr UINT32 PI_SMM_REVISION = 1 << 16 | 80;

Firmware& Current() {
    return Firmware::Current();
}

EFI_STATUS AllocateFrom(EFI_MEMORY_TYPE Type, UINTN Size, void** Buffer) {
    if (Buffer == nullptr || Type != EfiRuntimeServicesData) {
        return EFI_INVALID_PARAMETER;
    }
    Pool& From = Current().SmmPool;
    const EFI_STATUS Status = From.Allocate(Size, Buffer);
    if (Status != EFI_SUCCESS) {
        Current().Hardware.Note("alloc-fail", [&] {
            return nlohmann::ordered_json{{"number", Hex(From.Statistics().Allocations)}, {"bytes", Hex(Size)}};
        });
    }
    return Status;
}

template <Member Which>
EFI_STATUS Allocate(EFI_MEMORY_TYPE Type, UINTN Size, void** Buffer) {
    return Serve(Which, [&] { return AllocateFrom(Type, Size, Buffer); });
}

template <Member Which>
EFI_STATUS Free(void* Buffer) {
    return Serve(Which, [&] { return Current().SmmPool.Free(Buffer); });
}

template <Member Which>
EFI_STATUS Locate(const EFI_GUID* Protocol, void*, void** Interface) {
    return Serve(Which, [&] {
        if (Protocol == nullptr || Interface == nullptr) {
            return EFI_INVALID_PARAMETER;
        }
        const auto& Database = Which == Member::LocateProtocol ? Current().BootProtocols : Current().SmmProtocols;
        return Database.Locate(*Protocol, Interface);
    });
}

// Runs Procedure there and comes back: the simulated processors take turns.
EFI_STATUS StartupThisAp(EFI_AP_PROCEDURE Procedure, UINTN Number, void* Argument) {
    return Serve(Member::SmmStartupThisAp, [&] {
        Machine& Hardware = Current().Hardware;
        const unsigned Caller = Hardware.CurrentProcessor();
        if (Procedure == nullptr || Number >= Hardware.ProcessorCount() || Number == Caller) {
            return EFI_INVALID_PARAMETER;
        }
        if (Caller != Current().SmmSystemTable()->CurrentlyExecutingCpu) {
            Hardware.ReportFault("a procedure that was sent to a processor sends one to another processor");
            return EFI_INVALID_PARAMETER;
        }
        if (Current().SilentProcessors.contains(static_cast<unsigned>(Number))) {
            return EFI_SUCCESS;
        }
        Hardware.SetCurrentProcessor(static_cast<unsigned>(Number));
        Procedure(Argument);
        Hardware.SetCurrentProcessor(Caller);
        return EFI_SUCCESS;
    });
}

EFI_STATUS InstallProtocol(EFI_HANDLE* Handle, const EFI_GUID* Protocol, UINT32, void* Interface) {
    return Serve(Member::SmmInstallProtocolInterface, [&] {
        if (Handle == nullptr || Protocol == nullptr) {
            return EFI_INVALID_PARAMETER;
        }
        return Current().SmmProtocols.Install(Handle, *Protocol, Interface);
    });
}

EFI_STATUS UninstallProtocol(EFI_HANDLE, const EFI_GUID* Protocol, void* Interface) {
    return Serve(Member::SmmUninstallProtocolInterface, [&] {
        return Protocol == nullptr ? EFI_INVALID_PARAMETER : Current().SmmProtocols.Uninstall(*Protocol, Interface);
    });
}

EFI_STATUS HandleProtocol(EFI_HANDLE Handle, const EFI_GUID* Protocol, void** Interface) {
    return Serve(Member::SmmHandleProtocol, [&] {
        if (Protocol == nullptr || Interface == nullptr) {
            return EFI_INVALID_PARAMETER;
        }
        return Current().SmmProtocols.OnHandle(Handle, *Protocol, Interface);
    });
}

EFI_STATUS LocateHandle(EFI_LOCATE_SEARCH_TYPE Search, const EFI_GUID* Protocol, void*, UINTN* Size,
                        EFI_HANDLE* Buffer) {
    return Serve(Member::SmmLocateHandle, [&] {
        if (Search != ByProtocol || Protocol == nullptr || Size == nullptr || (*Size != 0 && Buffer == nullptr)) {
            return EFI_INVALID_PARAMETER;
        }
        const std::vector<EFI_HANDLE> Handles = Current().SmmProtocols.HandlesOf(*Protocol);
        if (Handles.empty()) {
            return EFI_NOT_FOUND;
        }
        const UINTN Needed = Handles.size() * sizeof(EFI_HANDLE);
        const bool Fits = *Size >= Needed;
        *Size = Needed;
        if (!Fits) {
            return EFI_BUFFER_TOO_SMALL;
        }
        std::memcpy(Buffer, Handles.data(), Needed);
        return EFI_SUCCESS;
    });
}

void NoteRegistration(bool Registered, const char* What, const EFI_GUID& Guid, EFI_STATUS Status) {
    if (Status == EFI_SUCCESS) {
        Current().Hardware.Note(Registered ? "register" : "unregister", [&] {
            return nlohmann::ordered_json{{"what", What}, {"guid", GuidName(Guid)}};
        });
    }
}

EFI_STATUS RegisterNotify(const EFI_GUID* Protocol, EFI_SMM_NOTIFY_FN Function, void** Registration) {
    return Serve(Member::SmmRegisterProtocolNotify, [&] {
        if (Protocol == nullptr || Registration == nullptr) {
            return EFI_INVALID_PARAMETER;
        }
        ProtocolDatabase& Database = Current().SmmProtocols;
        const EFI_STATUS Status = Function == nullptr ? Database.UnregisterNotify(*Protocol, *Registration)
                                                      : Database.RegisterNotify(*Protocol, Function, Registration);
        NoteRegistration(Function != nullptr, "notify", *Protocol, Status);
        return Status;
    });
}

EFI_STATUS HandlerRegister(EFI_SMM_HANDLER_ENTRY_POINT2 Function, const EFI_GUID* Type, EFI_HANDLE* Handle) {
    return Serve(Member::SmiHandlerRegister, [&] {
        if (Type == nullptr || Handle == nullptr) {
            return EFI_INVALID_PARAMETER;
        }
        SmiDispatch::Handler New;
        New.From = SmiDispatch::Source::Guid;
        New.Guid = *Type;
        New.GuidFunction = Function;
        const EFI_STATUS Status = Current().Dispatch.Register(New, Handle);
        NoteRegistration(true, "handler", *Type, Status);
        return Status;
    });
}

EFI_STATUS HandlerUnRegister(EFI_HANDLE Handle) {
    return Serve(Member::SmiHandlerUnRegister, [&] {
        const auto Guid = Current().Dispatch.GuidOf(Handle);
        const EFI_STATUS Status = Current().Dispatch.UnRegister(SmiDispatch::Source::Guid, Handle);
        if (Guid) {
            NoteRegistration(false, "handler", *Guid, Status);
        }
        return Status;
    });
}

}  // namespace

SystemTables::SystemTables(UINTN* SaveStateSizes, void** SaveStates, UINTN Processors) {
    BootServices.Hdr = {BOOT_SERVICES_SIGNATURE, UEFI_REVISION, sizeof(BootServices), 0, 0};
    BootServices.AllocatePool = Allocate<Member::AllocatePool>;
    BootServices.FreePool = Free<Member::FreePool>;
    BootServices.LocateProtocol = Locate<Member::LocateProtocol>;
    BootServices.CopyMem = [](void* To, const void* From, UINTN Length) { std::memmove(To, From, Length); };
    BootServices.SetMem = [](void* Buffer, UINTN Size, UINT8 Value) { std::memset(Buffer, Value, Size); };

    System.Hdr = {SYSTEM_TABLE_SIGNATURE, UEFI_REVISION, sizeof(System), 0, 0};
    System.BootServices = &BootServices;

    Smm.Hdr = {SMM_SYSTEM_TABLE_SIGNATURE, PI_SMM_REVISION, sizeof(Smm), 0, 0};
    Smm.SmmAllocatePool = Allocate<Member::SmmAllocatePool>;
    Smm.SmmFreePool = Free<Member::SmmFreePool>;
    Smm.SmmStartupThisAp = StartupThisAp;
    Smm.CurrentlyExecutingCpu = 0;
    Smm.NumberOfCpus = Processors;
    Smm.CpuSaveStateSize = SaveStateSizes;
    Smm.CpuSaveState = SaveStates;
    Smm.SmmInstallProtocolInterface = InstallProtocol;
    Smm.SmmUninstallProtocolInterface = UninstallProtocol;
    Smm.SmmHandleProtocol = HandleProtocol;
    Smm.SmmRegisterProtocolNotify = RegisterNotify;
    Smm.SmmLocateHandle = LocateHandle;
    Smm.SmmLocateProtocol = Locate<Member::SmmLocateProtocol>;
    Smm.SmiHandlerRegister = HandlerRegister;
    Smm.SmiHandlerUnRegister = HandlerUnRegister;
}

}  // namespace Simulator
