#include "Simulator/Firmware/ServiceMembers.h"

#include <stdexcept>

namespace Simulator {

namespace {

constexpr std::string_view NAMES[] = {
#define MEMBER(Id, Name) Name,
    SERVICE_MEMBERS(MEMBER)
#undef MEMBER
};

}  // namespace

std::string_view MemberName(Member Which) {
    return NAMES[static_cast<unsigned>(Which)];
}

std::optional<Member> FindMember(std::string_view Name) {
    for (unsigned Index = 0; Index < static_cast<unsigned>(Member::Count); Index++) {
        if (NAMES[Index] == Name) {
            return static_cast<Member>(Index);
        }
    }
    return std::nullopt;
}

std::vector<std::string_view> MemberNames() {
    return {std::begin(NAMES), std::end(NAMES)};
}

void ServiceFaults::Set(const std::string& Name, std::optional<Failure> How) {
    const auto Which = FindMember(Name);
    if (!Which) {
        throw std::invalid_argument("\"" + Name + "\" is no service member");
    }
    Entries[static_cast<unsigned>(*Which)].Planned = How;
}

std::optional<EFI_STATUS> ServiceFaults::Take(Entry& Called) {
    Failure& Plan = *Called.Planned;
    if (Plan.Skip > 0) {
        Plan.Skip--;
        return std::nullopt;
    }
    if (Plan.Times == 0) {
        Called.Planned.reset();
        return std::nullopt;
    }
    Plan.Times--;
    return Plan.Status;
}

}  // namespace Simulator
