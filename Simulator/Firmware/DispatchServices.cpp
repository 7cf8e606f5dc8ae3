// The software-SMI dispatchers and the root complexes' dispatcher.
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/ServiceTables.h"

namespace Simulator {

namespace {

using Source = SmiDispatch::Source;

EFI_STATUS Register(SmiDispatch::Handler New, EFI_HANDLE* Handle, const char* What) {
    if (Handle == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    const EFI_STATUS Status = Firmware::Current().Dispatch.Register(New, Handle);
    if (Status == EFI_SUCCESS) {
        Firmware::Current().Hardware.Note("register", [&] {
            nlohmann::ordered_json Fields{{"what", What}};
            if (New.From == Source::RootComplex) {
                Fields["context"] = HexBytes(&New.RasContext, sizeof(New.RasContext));
            } else {
                Fields["value"] = Hex(New.Value);
            }
            if (New.From == Source::FchSoftware) {
                Fields["context"] = "order " + Hex(New.Order);
            }
            return Fields;
        });
    }
    return Status;
}

EFI_STATUS UnRegister(Source From, EFI_HANDLE Handle, const char* What) {
    const EFI_STATUS Status = Firmware::Current().Dispatch.UnRegister(From, Handle);
    if (Status == EFI_SUCCESS) {
        Firmware::Current().Hardware.Note("unregister", [&] { return nlohmann::ordered_json{{"what", What}}; });
    }
    return Status;
}

constexpr char STANDARD[] = "software-smi";
constexpr char FCH[] = "fch-software-smi";
constexpr char ROOT_COMPLEX[] = "root-complex-smi";

}  // namespace

EFI_SMM_SW_DISPATCH2_PROTOCOL* SwDispatchTable() {
    using PROTOCOL = EFI_SMM_SW_DISPATCH2_PROTOCOL;
    static PROTOCOL Table{
        [](const PROTOCOL*, PROTOCOL::HANDLER Function, EFI_SMM_SW_REGISTER_CONTEXT* Context, EFI_HANDLE* Handle) {
            return Serve(Member::SwDispatchRegister, [&] {
                if (Context == nullptr) {
                    return EFI_INVALID_PARAMETER;
                }
                SmiDispatch::Handler New;
                New.From = Source::StandardSoftware;
                New.Value = Context->SwSmiInputValue;
                New.StandardContext = *Context;
                New.StandardFunction = Function;
                return Register(New, Handle, STANDARD);
            });
        },
        [](const PROTOCOL*, EFI_HANDLE Handle) {
            return Serve(Member::SwDispatchUnRegister,
                         [&] { return UnRegister(Source::StandardSoftware, Handle, STANDARD); });
        },
        SmiDispatch::MAXIMUM_SOFTWARE_VALUE,
    };
    return &Table;
}

FCH_SMM_SW_DISPATCH2_PROTOCOL* FchSwDispatchTable() {
    using PROTOCOL = FCH_SMM_SW_DISPATCH2_PROTOCOL;
    static PROTOCOL Table{
        [](const PROTOCOL*, PROTOCOL::HANDLER Function, const FCH_SMM_SW_REGISTER_CONTEXT* Context,
           EFI_HANDLE* Handle) {
            return Serve(Member::FchSwDispatchRegister, [&] {
                if (Context == nullptr) {
                    return EFI_INVALID_PARAMETER;
                }
                SmiDispatch::Handler New;
                New.From = Source::FchSoftware;
                New.Value = Context->SwValue;
                New.Order = Context->Order;
                New.FchContext = *Context;
                New.FchFunction = Function;
                return Register(New, Handle, FCH);
            });
        },
        [](const PROTOCOL*, EFI_HANDLE Handle) {
            return Serve(Member::FchSwDispatchUnRegister,
                         [&] { return UnRegister(Source::FchSoftware, Handle, FCH); });
        },
    };
    return &Table;
}

FCH_SMM_APU_RAS_DISPATCH_PROTOCOL* ApuRasDispatchTable() {
    using PROTOCOL = FCH_SMM_APU_RAS_DISPATCH_PROTOCOL;
    static PROTOCOL Table{
        [](const PROTOCOL*, PROTOCOL::HANDLER Function, const FCH_SMM_APU_RAS_REGISTER_CONTEXT* Context,
           EFI_HANDLE* Handle) {
            return Serve(Member::ApuRasDispatchRegister, [&] {
                if (Context == nullptr) {
                    return EFI_INVALID_PARAMETER;
                }
                SmiDispatch::Handler New;
                New.From = Source::RootComplex;
                New.Order = Context->Order;
                New.RasContext = *Context;
                New.RasFunction = Function;
                return Register(New, Handle, ROOT_COMPLEX);
            });
        },
        [](const PROTOCOL*, EFI_HANDLE Handle) {
            return Serve(Member::ApuRasDispatchUnRegister,
                         [&] { return UnRegister(Source::RootComplex, Handle, ROOT_COMPLEX); });
        },
    };
    return &Table;
}

}  // namespace Simulator
