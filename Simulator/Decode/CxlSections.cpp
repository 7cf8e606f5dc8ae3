#include <fmt/format.h>

#include "Simulator/Decode/Sections.h"
#include "Simulator/Journal/Journal.h"

namespace Simulator {

namespace {

constexpr std::size_t ProtocolFront = 116;
constexpr std::size_t RcrbAgent = 1;
constexpr std::size_t EventLogOffset = 32;
constexpr std::size_t EventRecordSize = 128;

constexpr const char* AgentTypes[] = {"restricted device",      "restricted downstream port", "device",
                                      "logical device",         "fabric-managed device",      "root port",
                                      "switch downstream port", "switch upstream port"};
constexpr const char* EventSeverities[] = {"informational", "warning", "failure", "fatal"};

void AppendBytes(std::vector<DecodedItem>& Items, const char* Name, Bytes Raw) {
    Items.push_back({Name, HexBytes(Raw.data(), Raw.size()), "", {}});
}

DecodedItem DecodeAgentAddress(const ByteReader& Reader, std::uint64_t AgentType) {
    if (AgentType == RcrbAgent) {
        return {"agent-address", Hex(Reader.Number(16, 8)), "RCRB base", {}};
    }
    return {"agent-address",
            fmt::format("{:04X}:{:02X}:{:02X}.{:X}", Reader.Number(19, 2), Reader.Number(18, 1), Reader.Number(17, 1),
                        Reader.Number(16, 1)),
            "",
            {}};
}

// Status, mask and severity of the CXL RAS capability (CXL 3.1, section 8.2.4.17), then its header log.
DecodedItem DecodeErrorLog(Bytes Log) {
    const ByteReader Reader(Log, "CXL error log");
    DecodedItem Item{"error-log", "", "", {}};
    constexpr NumberField Registers[] = {{"uncorrectable-status", 0x00, 4},   {"uncorrectable-mask", 0x04, 4},
                                         {"uncorrectable-severity", 0x08, 4}, {"correctable-status", 0x0C, 4},
                                         {"correctable-mask", 0x10, 4},       {"capabilities-control", 0x14, 4}};
    AppendNumbers(Item.Parts, Reader, Registers, 0);
    AppendBytes(Item.Parts, "header-log", Reader.Range(0x18, 64));
    return Item;
}

}  // namespace

std::vector<DecodedItem> DecodeCxlProtocolSection(Bytes Section) {
    const ByteReader Reader(Section, "CXL protocol error section");
    const std::uint64_t Valid = Reader.Number(0, 8);
    const std::uint64_t AgentType = Reader.Number(8, 1);
    std::vector<DecodedItem> Items{{"valid", Hex(Valid), "", {}}};
    if (Valid & 1) {
        Items.push_back({"agent-type", Hex(AgentType), Word(AgentTypes, AgentType), {}});
    }
    if (Valid >> 1 & 1) {
        Items.push_back(DecodeAgentAddress(Reader, AgentType));
    }
    constexpr NumberField Front[] = {
        {"vendor", 24, 2, 2},     {"device", 26, 2, 2}, {"subsystem-vendor", 28, 2, 2}, {"subsystem", 30, 2, 2},
        {"class-code", 32, 2, 2}, {"slot", 34, 2, 2},   {"serial-number", 40, 8, 3}};
    AppendNumbers(Items, Reader, Front, Valid);
    if (Valid >> 4 & 1) {
        AppendBytes(Items, "capability", Reader.Range(48, 60));
    }
    const std::uint64_t DvsecLength = Reader.Number(108, 2);
    if (Valid >> 5 & 1) {
        AppendBytes(Items, "dvsec", Reader.Range(ProtocolFront, DvsecLength));
    }
    if (Valid >> 6 & 1) {
        Items.push_back(DecodeErrorLog(Reader.Range(ProtocolFront + DvsecLength, Reader.Number(110, 2))));
    }
    return Items;
}

std::vector<DecodedItem> DecodeCxlComponentSection(Bytes Section) {
    const ByteReader Reader(Section, "CXL component event section");
    const std::uint64_t Valid = Reader.Number(4, 8);
    std::vector<DecodedItem> Items{{"valid", Hex(Valid), "", {}}};
    if (Valid & 1) {
        Items.push_back({"device-id",
                         fmt::format("{:04X}:{:02X}:{:02X}.{:X}", Reader.Number(19, 2), Reader.Number(18, 1),
                                     Reader.Number(17, 1), Reader.Number(16, 1)),
                         "",
                         {}});
    }
    constexpr NumberField Front[] = {
        {"vendor", 12, 2, 0}, {"device", 14, 2, 0}, {"slot", 21, 2, 0}, {"serial-number", 24, 8, 1}};
    AppendNumbers(Items, Reader, Front, Valid);
    if (Valid >> 2 & 1) {
        const ByteReader Event(Reader.Range(EventLogOffset, EventRecordSize), "CXL event record");
        DecodedItem Item{"event", "", "", {}};
        const std::uint64_t Severity = Event.Number(0x11, 1) & 3;
        Item.Parts = {{"severity", Hex(Severity), Word(EventSeverities, Severity), {}},
                      {"handle", Hex(Event.Number(0x14, 2)), "", {}},
                      {"related-handle", Hex(Event.Number(0x16, 2)), "", {}},
                      {"time-stamp", Hex(Event.Number(0x18, 8)), "nanoseconds since 1970", {}}};
        AppendBytes(Item.Parts, "data", Event.Range(0x30, 80));
        Items.push_back(Item);
    }
    return Items;
}

}  // namespace Simulator
