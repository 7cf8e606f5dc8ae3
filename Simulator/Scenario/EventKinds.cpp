#include "Simulator/Scenario/EventKinds.h"

namespace Simulator {

namespace {

using Fields = std::string_view;

constexpr Fields SmiEnterFields[] = {"kind", "sources"};
constexpr Fields SmiExitFields[] = {"kind", "handlers", "status"};
constexpr Fields RegisterFields[] = {"what", "value", "guid", "context"};
constexpr Fields UnregisterFields[] = {"what", "guid"};
constexpr Fields ServiceFields[] = {"member", "status",
                                    // Arguments.
                                    "processor", "bank", "cloak", "uncloak", "type", "completing", "misc0",
                                    "misc0-control", "misc0-count", "misc0-interrupt", "misc1", "misc1-control",
                                    "misc1-count", "misc1-interrupt", "config", "deferred-interrupt",
                                    "this-bank-only", "control", "count", "interrupt", "size", "entries",
                                    "threshold-type", "cycle", "socket", "channel", "start", "dimm", "sub-channel",
                                    "chip-select", "rank-multiplier", "action", "structure", "uid", "value"};
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
constexpr Fields PprFields[] = {"phase",       "type", "socket", "channel",      "sub-channel",
                                "chip-select", "bank", "row",    "first-device", "last-device"};
constexpr Fields RuntimePprFields[] = {"phase", "type", "socket", "channel", "sub-channel", "chip-select", "bank",
                                       "row", "first-device", "last-device",
                                       // Of the end of a repair, and of its results.
                                       "status", "signalled", "instance", "entries", "bytes"};
constexpr Fields PostErrorsFields[] = {"count", "codes"};
constexpr Fields CommFields[] = {"handler", "status"};
constexpr Fields AllocFailFields[] = {"number", "bytes"};
constexpr Fields DanglingFields[] = {"what"};

constexpr EventKind Kinds[] = {
    {"smi-enter", SmiEnterFields},
    {"smi-exit", SmiExitFields},
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
    {"nmi", {}},
    {"mce", MceFields},
    {"lvt", LvtFields},
    {"pcie-interrupt", PcieInterruptFields},
    {"cxl-interrupt", CxlInterruptFields},
    {"cxl-osc", CxlOscFields},
    {"ppr", PprFields},
    {"runtime-ppr", RuntimePprFields},
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
