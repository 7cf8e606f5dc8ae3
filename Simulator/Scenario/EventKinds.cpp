#include "Simulator/Scenario/EventKinds.h"

namespace Simulator {

namespace {

using Fields = std::string_view;

constexpr Fields SmiEnterFields[] = {"kind", "sources"};
constexpr Fields SmiExitFields[] = {"kind", "handlers", "status"};
constexpr Fields RegisterFields[] = {"what", "value", "guid", "context"};
constexpr Fields UnregisterFields[] = {"what", "guid"};
constexpr Fields ServiceFields[] = {"member", "status"};
constexpr Fields WriteFields[] = {"space", "bus", "address", "width", "value", "processor"};
constexpr Fields SelFields[] = {"bytes", "id"};
constexpr Fields SelSendFields[] = {"count", "status"};
constexpr Fields HealthFields[] = {"kind", "bytes"};
constexpr Fields RecordFields[] = {"section", "header-severity", "section-severity", "length"};
constexpr Fields GhesClearFields[] = {"status"};
// The last two look into the record that the event names.
constexpr Fields GhesLogFields[] = {"file", "severity", "status", "record", "record-bytes"};
constexpr Fields PageRetireFields[] = {"address", "threshold", "fru"};
constexpr Fields SciFields[] = {"cause"};
constexpr Fields MceFields[] = {"processor"};
constexpr Fields LvtFields[] = {"processor", "source"};
constexpr Fields PcieInterruptFields[] = {"port", "source"};
constexpr Fields CxlInterruptFields[] = {"function", "log"};
constexpr Fields CxlOscFields[] = {"support", "requested", "granted"};
// Rows have their address parts, results their bytes.
constexpr Fields PprFields[] = {"phase", "type", "status"};
constexpr Fields PostErrorsFields[] = {"count", "codes"};
constexpr Fields CommFields[] = {"handler", "status"};
constexpr Fields AllocFailFields[] = {"number", "bytes"};
constexpr Fields DanglingFields[] = {"what"};

constexpr EventKind Kinds[] = {
    {"smi-enter", SmiEnterFields},
    {"smi-exit", SmiExitFields},
    {"register", RegisterFields},
    {"unregister", UnregisterFields},
    {"service", ServiceFields, true},
    {"write", WriteFields},
    {"sel", SelFields},
    {"sel-send", SelSendFields},
    {"health", HealthFields},
    {"record", RecordFields},
    {"ghes-clear", GhesClearFields},
    {"ghes-log", GhesLogFields},
    {"page-retire", PageRetireFields},
    {"sci", SciFields},
    {"nmi", {}},
    {"mce", MceFields},
    {"lvt", LvtFields},
    {"pcie-interrupt", PcieInterruptFields},
    {"cxl-interrupt", CxlInterruptFields},
    {"cxl-osc", CxlOscFields},
    {"ppr", PprFields, true},
    {"runtime-ppr", PprFields, true},
    {"post-errors", PostErrorsFields},
    {"comm", CommFields},
    {"alloc-fail", AllocFailFields},
    {"dangling", DanglingFields},
    {"breakpoint", {}},
};

}  // namespace

std::span<const EventKind> EventKinds() {
    return Kinds;
}

}  // namespace Simulator
