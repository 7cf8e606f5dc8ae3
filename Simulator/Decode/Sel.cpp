// SEL records (IPMI 2.0, section 32) and what this system's events mean.
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>

#include "Simulator/Decode/Sections.h"
#include "Simulator/Journal/Journal.h"

namespace Simulator {

namespace {

constexpr std::size_t RecordSize = 16;
constexpr std::uint8_t SystemEventRecord = 0x02;
constexpr std::uint8_t FirstOemRecord = 0xC0;
constexpr int Any = -1;

using EventBytes = std::span<const std::uint8_t, 6>;

// Bus in event data 3, device and function in event data 2.
std::string DeviceText(EventBytes Event) {
    return fmt::format("{:02X}:{:02X}.{:X}", Event[5], Event[4] >> 3, Event[4] & 7);
}

std::string SocketText(std::uint8_t Mask) {
    for (unsigned Socket = 0; Socket < 8; ++Socket) {
        if (Mask == 1u << Socket) {
            return fmt::format("socket {}", Socket);
        }
    }
    return fmt::format("socket mask 0x{:02X}", Mask);
}

std::string TellMachineCheck(EventBytes Event) {
    return fmt::format("{} machine check, {}, APIC ID 0x{:02X}",
                       Event[1] == 0x3C ? "corrected" : "uncorrected (CPU0704)", SocketText(Event[4]), Event[5]);
}

std::string TellPciRegister(EventBytes Event) {
    return fmt::format("configuration register byte 0x{:03X} = 0x{:02X}", Event[3] << 8 | Event[4], Event[5]);
}

std::string TellCxlRas(EventBytes Event) {
    return fmt::format("CXL RAS capability 0x{:02X} = 0x{:04X}", Event[3], Event[5] << 8 | Event[4]);
}

std::string TellPostErrors(EventBytes Event) {
    constexpr const char* Kinds[] = {"POST errors (PST0089)", "previous-boot errors (PST0090)",
                                     "memory-training errors (PST0091)"};
    return fmt::format("{}, data 0x{:02X}", FlagWords(Kinds, Event[4]), Event[5]);
}

std::string TellPciError(EventBytes Event) {
    return fmt::format("PCI {} of {}", Event[1] == 5 ? "SERR (PCI1310)" : "PERR (PCI1308)", DeviceText(Event));
}

std::string DimmText(std::uint8_t Location) {
    // One less than socket << 6 | slot number, in eight bits.
    const auto Place = static_cast<std::uint8_t>(Location + 1);
    return fmt::format("socket {} slot {}", Place >> 6, Place & 0x3F);
}

std::string TellMemory(EventBytes Event) {
    struct Row {
        std::uint8_t Sensor;
        int Data1, Data2;
        const char* Text;
    };
    // Without repair, with hard and with soft repair; the high nibble of data 2 tells.
    constexpr Row Rows[] = {
        {19, Any, 0x13, "critical threshold"},
        {19, Any, 0x43, "critical threshold, hard repair"},
        {19, Any, 0x53, "critical threshold, soft repair"},
        {19, Any, 0x14, "half the threshold"},
        {19, Any, 0x44, "half the threshold, hard repair"},
        {19, Any, 0x54, "half the threshold, soft repair"},
        {19, Any, 0x61, "an eighth of the threshold"},
        {20, 0x3E, Any, "corrected ECC error"},
        {20, 0x44, Any, "uncorrected ECC error, poison detected"},
        {21, 0x4E, Any, "uncorrected ECC error, poison consumed"},
    };
    for (const Row& Candidate : Rows) {
        if (Candidate.Sensor == Event[1] && (Candidate.Data1 == Any || Candidate.Data1 == Event[3]) &&
            (Candidate.Data2 == Any || Candidate.Data2 == Event[4])) {
            return fmt::format("memory {}, DIMM {}", Candidate.Text, DimmText(Event[5]));
        }
    }
    return fmt::format("memory event 0x{:02X} 0x{:02X}, DIMM {}", Event[3], Event[4], DimmText(Event[5]));
}

std::string TellPcie(EventBytes Event) {
    constexpr const char* Severities[] = {"DPC", "informational", "correctable", "fatal"};
    const bool IsCxl = Event[0] == 0xDF;
    const unsigned Class = Event[3] >> 2 & 3;
    const std::string Place = Class == 1   ? DeviceText(Event)
                              : Class == 0 ? fmt::format("slot {}", Event[5] << 8 | Event[4])
                                           : fmt::format("drive slot {} bay {}", Event[4], Event[5]);
    return fmt::format("{} {} event, segment {}, {}", IsCxl ? "CXL" : "PCIe", Severities[Event[3] & 3], Event[3] >> 4,
                       Place);
}

std::string TellChipset(EventBytes Event) {
    constexpr const char* Severities[] = {"informational event", "correctable error", "fatal error"};
    const std::string Severity = Word(Severities, Event[3] & 0xF);
    return fmt::format("chipset {}, segment {}, {}", Severity.empty() ? "event" : Severity, Event[3] >> 4,
                       DeviceText(Event));
}

constexpr std::uint8_t RegisterSensor = 0xC1;
constexpr std::uint8_t MsrSensor = 0x28;
constexpr std::uint8_t MmioSensor = 0x49;
constexpr std::uint8_t RegisterEventType = 0x7E;

// Sensor type, sensor number, event type and event data 1.
struct EventKind {
    int Bytes[4];
    std::string (*Tell)(EventBytes Event);
};
constexpr EventKind EventKinds[] = {
    {{0x07, 0x3C, 0x6F, 0xAC}, TellMachineCheck}, {{0x07, 0x0D, 0x07, 0xA6}, TellMachineCheck},
    {{0xC1, 0x1A, 0x7E, Any}, TellPciRegister},   {{0xC1, 0x57, 0x7E, Any}, TellCxlRas},
    {{0xC1, 0x2E, 0x72, 0xA2}, TellPostErrors},   {{0x13, 0x05, 0x6F, 0xA5}, TellPciError},
    {{0x13, 0x04, 0x6F, 0xA4}, TellPciError},     {{0xD4, Any, 0x74, Any}, TellMemory},
    {{0xD5, Any, 0x74, Any}, TellMemory},         {{0xD6, Any, 0x74, Any}, TellMemory},
    {{0xDE, 0x16, 0x74, Any}, TellPcie},          {{0xDF, 0x1D, 0x74, Any}, TellPcie},
    {{0xDD, 0x17, 0x74, Any}, TellChipset},
};

bool IsOfKind(const EventKind& Kind, EventBytes Event) {
    for (std::size_t Index = 0; Index < std::size(Kind.Bytes); ++Index) {
        if (Kind.Bytes[Index] != Any && Kind.Bytes[Index] != Event[Index]) {
            return false;
        }
    }
    return true;
}

std::string TellLocation(std::uint64_t ApicId, std::uint64_t Value) {
    const auto Byte = [Value](unsigned Shift) { return Value >> Shift & 0xFF; };
    return fmt::format("location: APIC ID 0x{:X}, socket {}, die {}, CCX {}, core {}, thread {}", ApicId, Byte(56),
                       Byte(40), Byte(48), Byte(32), Byte(24));
}

std::string TellMsr(std::uint32_t Msr, std::uint64_t Value) {
    const DecodedItem Register = DecodeBankRegister(Msr, Value);
    const std::string Name =
        Register.Name.empty() ? "" : fmt::format(" ({} of bank {})", Register.Name, (Msr & 0xFFF) >> 4);
    return fmt::format("MSR 0x{:08X}{} = 0x{:016X}", Msr, Name, Value);
}

}  // namespace

std::string SelNarrator::TellRegister(std::uint8_t SensorNumber, std::span<const std::uint8_t, 3> Data) {
    const std::size_t Needed = SensorNumber == MsrSensor ? 12 : 9;
    if (CollectedFor != SensorNumber) {
        Collected.clear();
        CollectedFor = SensorNumber;
    }
    Collected.insert(Collected.end(), Data.begin(), Data.end());
    if (Collected.size() < Needed) {
        return fmt::format("register data {} of {}", Collected.size() / 3, Needed / 3);
    }
    const ByteReader Whole(Collected, "register events");
    const auto Address = static_cast<std::uint32_t>(Whole.Number(0, 4));
    std::string Text;
    if (SensorNumber == MmioSensor) {
        Text = fmt::format("root port 0x{:08X} = 0x{:08X}", Address, Whole.Number(4, 4));
    } else if (LocationFollows) {
        Text = TellLocation(Address, Whole.Number(4, 8));
    } else {
        Text = TellMsr(Address, Whole.Number(4, 8));
    }
    LocationFollows = false;
    Collected.clear();
    CollectedFor = 0;
    return Text;
}

std::string SelNarrator::Tell(EventBytes Event) {
    if (Event[0] == RegisterSensor && Event[2] == RegisterEventType &&
        (Event[1] == MsrSensor || Event[1] == MmioSensor)) {
        return TellRegister(Event[1], Event.last<3>());
    }
    CollectedFor = 0;
    for (const EventKind& Kind : EventKinds) {
        if (IsOfKind(Kind, Event)) {
            LocationFollows = Kind.Tell == TellMachineCheck;
            return Kind.Tell(Event);
        }
    }
    return "not an event of this system";
}

std::vector<DecodedItem> DecodeSel(Bytes Log) {
    if (Log.size() % RecordSize != 0) {
        throw DecodeError(fmt::format("the log is {} bytes long, but records of 16 bytes are needed", Log.size()));
    }
    std::vector<DecodedItem> Items;
    SelNarrator Narrator;
    for (std::size_t Offset = 0; Offset < Log.size(); Offset += RecordSize) {
        const ByteReader Record(Log.subspan(Offset, RecordSize), "SEL record");
        const auto Type = static_cast<std::uint8_t>(Record.Number(2, 1));
        if (Type != SystemEventRecord && Type < FirstOemRecord) {
            throw DecodeError(
                fmt::format("the record at offset {} has type 0x{:02X}, but 0x02 (system event) or "
                            "0xC0 to 0xFF (OEM) is needed",
                            Offset, Type));
        }
        DecodedItem Item{"record", Hex(Record.Number(0, 2)), "", {}};
        const Bytes Raw = Record.Range(0, RecordSize);
        if (Type != SystemEventRecord) {
            Item.Meaning = "OEM record";
            Item.Parts.push_back({"bytes", HexBytes(Raw.data(), Raw.size()), "", {}});
        } else {
            const EventBytes Event = Raw.subspan<10, 6>();
            const auto Seconds = static_cast<std::time_t>(Record.Number(3, 4));
            Item.Meaning = Narrator.Tell(Event);
            Item.Parts = {
                {"time", Hex(Record.Number(3, 4)), fmt::format("{:%Y-%m-%d %H:%M:%S} UTC", fmt::gmtime(Seconds)), {}},
                {"generator", fmt::format("0x{:04X}", Record.Number(7, 2)), "", {}},
                {"event-revision", Hex(Record.Number(9, 1)), "", {}},
                {"direction", Hex(Event[2] >> 7), Event[2] >> 7 ? "deassertion" : "assertion", {}},
                {"event", HexBytes(Event.data(), Event.size()), "", {}},
            };
        }
        Items.push_back(std::move(Item));
    }
    return Items;
}

}  // namespace Simulator
