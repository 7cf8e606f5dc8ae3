#include "Simulator/Scenario/EventKinds.h"

namespace Simulator {

namespace {

using Fields = std::string_view;

constexpr Fields SmiFields[] = {"kind", "handlers", "status"};
constexpr Fields RegisterFields[] = {"what", "value", "guid", "context", "status"};
constexpr Fields UnregisterFields[] = {"what", "value", "guid", "status"};
constexpr Fields ServiceFields[] = {"member", "arguments", "status"};
constexpr Fields WriteFields[] = {"space", "address", "width", "value", "processor"};
constexpr Fields SelFields[] = {"bytes", "id", "status"};
constexpr Fields SelSendFields[] = {"count", "status"};
constexpr Fields HealthFields[] = {"kind", "bytes", "status"};
constexpr Fields RecordFields[] = {"file", "section", "header-severity", "section-severity", "length"};
constexpr Fields GhesClearFields[] = {"status"};
constexpr Fields GhesLogFields[] = {"file", "severity", "status", "record", "record-bytes"};
constexpr Fields PageRetireFields[] = {"address", "threshold", "status"};
constexpr Fields SciFields[] = {"cause", "status"};
constexpr Fields NmiFields[] = {"status"};
constexpr Fields MceFields[] = {"processor"};
constexpr Fields PprFields[] = {"type", "arguments", "status"};
constexpr Fields PostErrorsFields[] = {"count", "codes", "status"};
constexpr Fields CommFields[] = {"handler", "status"};
constexpr Fields AllocFailFields[] = {"bytes", "number"};

constexpr EventKind Kinds[] = {
    {"smi-enter", SmiFields},
    {"smi-exit", SmiFields},
    {"register", RegisterFields},
    {"unregister", UnregisterFields},
    {"service", ServiceFields},
    {"write", WriteFields},
    {"sel", SelFields},
    {"sel-send", SelSendFields},
    {"health", HealthFields},
    {"record", RecordFields},
    {"ghes-clear", GhesClearFields},
    {"ghes-log", GhesLogFields},
    {"page-retire", PageRetireFields},
    {"sci", SciFields},
    {"nmi", NmiFields},
    {"mce", MceFields},
    {"ppr", PprFields},
    {"runtime-ppr", PprFields},
    {"post-errors", PostErrorsFields},
    {"comm", CommFields},
    {"alloc-fail", AllocFailFields},
};

}  // namespace

std::span<const EventKind> EventKinds() {
    return Kinds;
}

}  // namespace Simulator
