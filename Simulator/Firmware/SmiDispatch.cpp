#include "Simulator/Firmware/SmiDispatch.h"

#include <fmt/format.h>

#include <algorithm>

#include "Include/Cper.h"
#include "Simulator/Firmware/Names.h"
#include "Simulator/Journal/Journal.h"
#include "Simulator/Machine/Machine.h"

namespace Simulator {

EFI_STATUS SmiDispatch::Register(Handler New, EFI_HANDLE* Handle) {
    const bool HasFunction = New.StandardFunction != nullptr || New.FchFunction != nullptr ||
                             New.RasFunction != nullptr || New.GuidFunction != nullptr;
    if (!HasFunction || New.Value > MAXIMUM_SOFTWARE_VALUE) {
        return EFI_INVALID_PARAMETER;
    }
    const auto Takes = [&New](const Handler& One) {
        return One.From == Source::StandardSoftware && One.Value == New.Value;
    };
    if (New.From == Source::StandardSoftware && std::any_of(Handlers.begin(), Handlers.end(), Takes)) {
        return EFI_INVALID_PARAMETER;
    }
    New.Handle = reinterpret_cast<EFI_HANDLE>(NextHandle++);
    *Handle = New.Handle;
    const auto Place =
        std::find_if(Handlers.begin(), Handlers.end(), [&New](const Handler& One) { return One.Order > New.Order; });
    Handlers.insert(Place, New);
    return EFI_SUCCESS;
}

EFI_STATUS SmiDispatch::UnRegister(Source From, EFI_HANDLE Handle) {
    const auto Removed =
        std::erase_if(Handlers, [&](const Handler& One) { return One.From == From && One.Handle == Handle; });
    return Removed == 0 ? EFI_INVALID_PARAMETER : EFI_SUCCESS;
}

std::optional<EFI_GUID> SmiDispatch::GuidOf(EFI_HANDLE Handle) const {
    for (const Handler& One : Handlers) {
        if (One.From == Source::Guid && One.Handle == Handle) {
            return One.Guid;
        }
    }
    return std::nullopt;
}

// A handler may unregister itself or others while they run.
template <class Matches, class Call>
DispatchResult SmiDispatch::Run(Matches&& IsMeant, Call&& CallOne) {
    std::vector<EFI_HANDLE> Meant;
    for (const Handler& One : Handlers) {
        if (IsMeant(One)) {
            Meant.push_back(One.Handle);
        }
    }
    DispatchResult Result;
    for (const EFI_HANDLE Handle : Meant) {
        const auto Found = std::find_if(Handlers.begin(), Handlers.end(),
                                        [Handle](const Handler& One) { return One.Handle == Handle; });
        if (Found == Handlers.end()) {
            continue;
        }
        if (ImageIsGone) {
            Machine::Current().ReportFault("an SMI reaches a handler of an unloaded image: " + Describe(*Found));
            continue;
        }
        // The registration may go while its handler runs; its context may not.
        const Handler Called = *Found;
        const EFI_STATUS Status = CallOne(Called);
        if (Result.Handlers++ == 0 || (EFI_ERROR(Status) && !EFI_ERROR(Result.Status))) {
            Result.Status = Status;
        }
    }
    return Result;
}

DispatchResult SmiDispatch::Software(std::uint64_t Value) {
    return Run(
        [Value](const Handler& One) {
            return One.Value == Value && (One.From == Source::StandardSoftware || One.From == Source::FchSoftware);
        },
        [](const Handler& One) {
            UINTN Size = 0;
            return One.From == Source::FchSoftware
                       ? One.FchFunction(One.Handle, &One.FchContext, nullptr, &Size)
                       : One.StandardFunction(One.Handle, &One.StandardContext, nullptr, &Size);
        });
}

DispatchResult SmiDispatch::RootComplexes() {
    return Run([](const Handler& One) { return One.From == Source::RootComplex; },
               [](const Handler& One) { return One.RasFunction(One.Handle, &One.RasContext); });
}

DispatchResult SmiDispatch::Communication(const EFI_GUID& Guid, void* Buffer, UINTN* Size) {
    return Run([&Guid](const Handler& One) { return One.From == Source::Guid && IsGuidEqual(One.Guid, Guid); },
               [&](const Handler& One) { return One.GuidFunction(One.Handle, nullptr, Buffer, Size); });
}

std::vector<std::string> SmiDispatch::AbandonImage() {
    ImageIsGone = true;
    std::vector<std::string> Left;
    for (const Handler& One : Handlers) {
        Left.push_back(Describe(One));
    }
    return Left;
}

std::string SmiDispatch::Describe(const Handler& Which) {
    switch (Which.From) {
        case Source::StandardSoftware:
            return "software SMI " + Hex(Which.Value);
        case Source::FchSoftware:
            return "FCH software SMI " + Hex(Which.Value);
        case Source::RootComplex:
            return "root-complex SMI " + HexBytes(&Which.RasContext, sizeof(Which.RasContext));
        case Source::Guid:
            return "handler of " + GuidName(Which.Guid);
    }
    return {};
}

}  // namespace Simulator
