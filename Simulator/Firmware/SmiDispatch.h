// Who handles which SMI: both software-SMI dispatchers, the root complexes' dispatcher, GUID-addressed handlers.
#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Protocol/SwDispatch.h"
#include "Platform/Services.h"

namespace Simulator {

struct DispatchResult {
    unsigned Handlers = 0;              // called
    EFI_STATUS Status = EFI_NOT_FOUND;  // of the first handler that failed, else success; not found for none
};

class SmiDispatch {
 public:
    enum class Source { StandardSoftware, FchSoftware, RootComplex, Guid };

    // Registered handlers of one kind; a handler of the FCH kinds is called in the order of its context.
    struct Handler {
        Source From = Source::Guid;
        EFI_HANDLE Handle = nullptr;
        std::uint64_t Value = 0;  // of a software SMI
        unsigned Order = 0;
        EFI_GUID Guid{};
        EFI_SMM_SW_REGISTER_CONTEXT StandardContext{};
        FCH_SMM_SW_REGISTER_CONTEXT FchContext{};
        FCH_SMM_APU_RAS_REGISTER_CONTEXT RasContext{};
        EFI_SMM_SW_DISPATCH2_PROTOCOL::HANDLER StandardFunction = nullptr;
        FCH_SMM_SW_DISPATCH2_PROTOCOL::HANDLER FchFunction = nullptr;
        FCH_SMM_APU_RAS_DISPATCH_PROTOCOL::HANDLER RasFunction = nullptr;
        EFI_SMM_HANDLER_ENTRY_POINT2 GuidFunction = nullptr;
    };

    // Takes the handler in and gives it a handle. EFI_INVALID_PARAMETER without a function, for a software value
    // above MAXIMUM_SOFTWARE_VALUE, or for a value of the standard dispatcher that is taken.
    EFI_STATUS Register(Handler New, EFI_HANDLE* Handle);
    // EFI_INVALID_PARAMETER for a handle that is none of that source.
    EFI_STATUS UnRegister(Source From, EFI_HANDLE Handle);

    // What a GUID-addressed handler was registered for.
    std::optional<EFI_GUID> GuidOf(EFI_HANDLE Handle) const;

    DispatchResult Software(std::uint64_t Value);
    DispatchResult RootComplexes();
    DispatchResult Communication(const EFI_GUID& Guid, void* Buffer, UINTN* Size);

    // The image that registered them is gone: what is left, as text. Calling one of them from now on is a fault.
    std::vector<std::string> AbandonImage();

    static std::string Describe(const Handler& Which);

    static constexpr std::uint64_t MAXIMUM_SOFTWARE_VALUE = 0xFF;

 private:
    template <class Matches, class Call>
    DispatchResult Run(Matches&& IsMeant, Call&& CallOne);

    std::list<Handler> Handlers;
    std::uint64_t NextHandle = 0x1000;
    bool ImageIsGone = false;
};

}  // namespace Simulator
