// The journal's events and their fields, as scenarios may name them.
#pragma once

#include <span>
#include <string_view>

namespace Simulator {

struct EventKind {
    std::string_view Name;
    std::span<const std::string_view> Fields;  // beside step and time, which every event has
};

std::span<const EventKind> EventKinds();

}  // namespace Simulator
