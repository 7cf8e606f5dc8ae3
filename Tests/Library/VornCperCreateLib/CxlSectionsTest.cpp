// Records with CXL sections against hand-worked bytes.
#include "Library/VornCperCreateLib/CxlSections.h"

#include <gtest/gtest.h>

#include <cstring>

#include "Tests/Support/GoldenRecord.h"

namespace {

constexpr PCI_SLOT_NUMBER_DATA Slot3{1, 1, {.SlotNumber = 3}};
const char* const ProtocolType = "B4 EF B9 80 B5 52 E3 4D A7 77 68 78 4B 77 10 48";

// Function 1, device 0A, bus 4E, segment 0002; vendor 1234, device ABCD, subsystem 5678:9ABC, class 0502.
PCI_DEVICE_STATE AgentOf(UINT32 AgentType) {
    PCI_DEVICE_STATE State{};
    State.PcieCapabilityOffset = 0x58;
    std::memcpy(State.PcieCapability, CountingBytes(0x40, 60).data(), 60);
    auto& Cxl = State.Cxl;
    Cxl.IsCxl = TRUE;
    Cxl.CxlAgentType = AgentType;
    Cxl.CxlAgentAddress = {1, 0x0A, 0x4E, 2, {0xE1, 0xE2, 0xE3}};
    Cxl.CxlDeviceId = {0x1234, 0xABCD, 0x5678, 0x9ABC, 0x0502};
    Cxl.DeviceSerialNumber = 0x8877665544332211;
    std::memcpy(Cxl.Dvsec, CountingBytes(0x80, 60).data(), 60);
    std::memcpy(Cxl.RasCapability, CountingBytes(0x03, 536).data(), 536);
    return State;
}

// What the record says of the handled class.
struct Severity {
    UINT8 CXL_ERROR_STATUS::*Handle;
    const char *Header, *Descriptor, *Flags, *Fru;
};
constexpr Severity Fatal{&CXL_ERROR_STATUS::HandleFatal, "00", "01", "00", "CXL Fatal"};
constexpr Severity NonFatal{&CXL_ERROR_STATUS::HandleNonFatal, "00", "00", "00", "CXL Non-Fatal"};
constexpr Severity Correctable{&CXL_ERROR_STATUS::HandleCorrectable, "02", "02", "01", "CXL Correctable"};

struct ProtocolCase {
    const char* Name;
    UINT32 AgentType;
    bool HasDvsec;  // captured
    const Severity& Class;
    unsigned Valid;  // 0 agent type, 1 address, 2 device ID, 3 serial number, 4 capability, 5 DVSEC, 6 error log
    unsigned SectionLength;
    const char* Address;
    unsigned DvsecBytes;  // in the record; what was captured beyond them leaves zeros at the end
};

const char* const FunctionAddress = "01 0A 4E 02 00 00 00 00";
const char* const DeviceIdAndSlot = "34 12 CD AB 78 56 BC 9A 02 05 18 00 00 00 00 00";

std::string GoldenProtocolRecord(const ProtocolCase& Case, UINT32 RecordLength) {
    const std::string Length = Bytes(RecordLength, 2), SectionLength = Bytes(Case.SectionLength, 2);
    const Severity& Class = Case.Class;
    const GoldenFront Front{Class.Header,          Class.Descriptor, Class.Flags, Length.c_str(),
                            SectionLength.c_str(), ProtocolType,     Class.Fru};
    const auto IfValid = [&](unsigned Bit, const std::string& Text, std::size_t Size) {
        return (Case.Valid >> Bit & 1) != 0 ? " " + Text + " " : Zeros(Size);
    };
    return Front.Text() + Bytes(Case.Valid, 8) + Bytes(Case.AgentType, 8) + Case.Address +
           IfValid(2, DeviceIdAndSlot, 16) + IfValid(3, "11 22 33 44 55 66 77 88", 8) +
           IfValid(4, Counting(0x40, 60), 60) + Bytes(Case.DvsecBytes, 2) + IfValid(6, "18 02", 2) + Zeros(4) +
           Counting(0x80, Case.DvsecBytes) + IfValid(6, Counting(0x03, 536), 0) +
           Zeros((Case.HasDvsec ? 60 : 0) - Case.DvsecBytes);
}

class GoldenCxlProtocolRecord : public testing::TestWithParam<ProtocolCase> {};

TEST_P(GoldenCxlProtocolRecord, HoldsEveryByteOfThePublishedLayout) {
    const ProtocolCase& Case = GetParam();
    Simulator::Simulation Machine(WithGoldenClock());
    PCI_DEVICE_STATE State = AgentOf(Case.AgentType);
    State.Cxl.DvsecValid = Case.HasDvsec;
    State.Cxl.RasCapabilityValid = (Case.Valid & 0x40) != 0;
    State.Cxl.ErrorStatus.*Case.Class.Handle = TRUE;
    if ((Case.Valid & 0x08) == 0) {
        State.Cxl.DeviceSerialNumber = 0;
    }
    if ((Case.Valid & 0x10) == 0 && Case.AgentType == 2) {
        State.PcieCapabilityOffset = 0;
    }
    // As the record is allocated: for a device, whatever the agent is.
    const UINT32 Length = 316 + (Case.HasDvsec ? 60 : 0) + (State.Cxl.RasCapabilityValid != FALSE ? 536 : 0);
    ASSERT_EQ(Length, VornCperGetCxlProtocolRecordLength(2, Case.HasDvsec, State.Cxl.RasCapabilityValid));
    std::vector<std::uint8_t> Record(Length);
    EXPECT_EQ(EFI_SUCCESS, VornCperCreateCxlProtocol(DEBUG_VERBOSE, 2, 0x4E, 0x0A, 1, &Slot3, &State, FALSE, Length,
                                                     reinterpret_cast<CPER_RECORD*>(Record.data())));
    EXPECT_EQ(HexLines(BytesOf(GoldenProtocolRecord(Case, Length))), HexLines(Record));
}

// Section lengths 712 of a device, 684 of a port and 116 of others, whatever was captured.
const ProtocolCase ProtocolCases[] = {
    {"Device", 2, true, Fatal, 0x7F, 712, FunctionAddress, 60},
    {"DeviceWithoutDvsec", 2, false, NonFatal, 0x57, 712, FunctionAddress, 0},
    {"DeviceWithoutErrorLog", 2, true, Correctable, 0x2F, 712, FunctionAddress, 60},
    {"RestrictedDevice", 0, true, Fatal, 0x7F, 712, FunctionAddress, 60},
    // The RCRB base as it stands in the state; neither device ID nor capability nor DVSEC.
    {"RestrictedDownstreamPort", 1, true, Fatal, 0x4B, 116, "01 0A 4E 02 00 E1 E2 E3", 0},
    {"LogicalDevice", 3, true, Fatal, 0x7F, 116, FunctionAddress, 60},
    {"RootPort", 5, true, Fatal, 0x7F, 684, FunctionAddress, 32},
    {"SwitchUpstreamPort", 7, true, Fatal, 0x3F, 684, FunctionAddress, 32},
    {"UnknownAgent", 8, true, Fatal, 0x49, 116, "00 00 00 00 00 00 00 00", 0},
};
INSTANTIATE_TEST_SUITE_P(EachAgent, GoldenCxlProtocolRecord, testing::ValuesIn(ProtocolCases),
                         [](const testing::TestParamInfo<ProtocolCase>& Info) { return Info.param.Name; });

TEST(CxlProtocolSection, LengthsFollowTheAgent) {
    const struct {
        UINT32 AgentType;
        UINT64 None, Dvsec, ErrorLog, Both;
    } Cases[] = {
        {0, 116, 176, 652, 712}, {1, 116, 116, 116, 116}, {2, 116, 176, 652, 712},
        {3, 116, 116, 116, 116}, {4, 116, 116, 116, 116}, {5, 116, 148, 652, 684},
        {6, 116, 148, 652, 684}, {7, 116, 148, 652, 684}, {8, 116, 116, 116, 116},
    };
    for (const auto& Case : Cases) {
        EXPECT_EQ(VornCperGetCxlProtocolSectionLength(Case.AgentType, FALSE, FALSE), Case.None);
        EXPECT_EQ(VornCperGetCxlProtocolSectionLength(Case.AgentType, TRUE, FALSE), Case.Dvsec);
        EXPECT_EQ(VornCperGetCxlProtocolSectionLength(Case.AgentType, FALSE, TRUE), Case.ErrorLog);
        EXPECT_EQ(VornCperGetCxlProtocolRecordLength(Case.AgentType, TRUE, TRUE), 200 + Case.Both);
    }
}

const char* const DramEvent = "60 1D CB B3 9C 06 4E AB B8 AF 4E 9B FB 5C 96 24";

EFI_GUID UuidOf(const std::string& Text) {
    EFI_GUID Uuid;
    std::memcpy(&Uuid, BytesOf(Text).data(), sizeof(Uuid));
    return Uuid;
}

struct ComponentCase {
    const char* Name;
    UINT32 AgentType;
    UINT64 SerialNumber;
    UINT8 EventSeverity;
    BOOLEAN PreviousError;
    const char *Severity, *HeaderFlags, *Fru;
    unsigned Valid;
    const char* Device;
};

class GoldenCxlComponentRecord : public testing::TestWithParam<ComponentCase> {};

TEST_P(GoldenCxlComponentRecord, HoldsEveryByteOfThePublishedLayout) {
    const ComponentCase& Case = GetParam();
    Simulator::Simulation Machine(WithGoldenClock());
    PCI_DEVICE_STATE State = AgentOf(Case.AgentType);
    State.Cxl.DeviceSerialNumber = Case.SerialNumber;
    const EFI_GUID Uuid = UuidOf(DramEvent);
    const auto Event = CountingBytes(0x05, 128);
    ASSERT_EQ(160u, VornCperGetCxlComponentSectionLength(&Uuid));
    ASSERT_EQ(360u, VornCperGetCxlComponentRecordLength(&Uuid));
    std::vector<std::uint8_t> Record(360);
    EXPECT_EQ(EFI_SUCCESS, VornCperCreateCxlComponent(DEBUG_VERBOSE, 2, 0x4E, 0x0A, 1, &Slot3, &State,
                                                      Case.PreviousError, &Uuid, Case.EventSeverity, Event.data(),
                                                      360, reinterpret_cast<CPER_RECORD*>(Record.data())));
    const GoldenFront Front{Case.Severity, Case.Severity, Case.HeaderFlags, "68 01", "A0 00", DramEvent, Case.Fru};
    // The section's own length stays zero.
    const std::string Golden = Front.Text() + Zeros(4) + Bytes(Case.Valid, 8) + Case.Device + " 00" +
                               Bytes(Case.SerialNumber, 8) + Counting(0x05, 128);
    EXPECT_EQ(HexLines(BytesOf(Golden)), HexLines(Record));
}

const char* const Device = "34 12 CD AB 01 0A 4E 02 00 18 00";
const ComponentCase ComponentCases[] = {
    {"Informational", 2, 0x8877665544332211, 0, FALSE, "02", "01", "CXL Informational", 7, Device},
    {"Warning", 2, 0, 1, FALSE, "02", "01", "CXL Warning", 5, Device},
    {"Failure", 7, 1, 2, FALSE, "02", "01", "CXL Failure", 7, Device},
    {"WhateverElseIsFatal", 2, 0, 4, FALSE, "01", "00", "CXL Fatal", 5, Device},
    {"PreviousError", 2, 0, 0, TRUE, "01", "02", "CXL Informational", 5, Device},
    {"RestrictedDownstreamPort", 1, 1, 3, FALSE, "01", "00", "CXL Fatal", 6, "00 00 00 00 00 00 00 00 00 00 00"},
};
INSTANTIATE_TEST_SUITE_P(EachSeverity, GoldenCxlComponentRecord, testing::ValuesIn(ComponentCases),
                         [](const testing::TestParamInfo<ComponentCase>& Info) { return Info.param.Name; });

TEST(CxlComponentSection, KnowsTheEventRecordsByTheirFirstSixteenBytes) {
    Simulator::Simulation Machine(WithGoldenClock());
    for (const char* Known :
         {"FB CD 0A 77 C2 60 41 7F 85 A9 08 8B 16 21 EB A6", "60 1D CB B3 9C 06 4E AB B8 AF 4E 9B FB 5C 96 24",
          "FE 92 74 75 DD 59 43 39 A5 86 79 BA B1 13 B7 74", "E7 1F 3A 40 2D 29 40 92 8A 39 4D 1C 96 6C 7C 65",
          "77 CF 92 71 9C 02 47 0B 9F E4 BC 7B 75 F2 DA 97", "40 D2 64 25 33 96 4C 4D A5 DA 3D 47 26 3A F4 25",
          "8D C4 43 63 0C 96 47 10 B7 BF 04 BB 99 53 4C 3F", "CA 95 AF A7 F1 83 40 18 8C 2F 95 26 8E 10 1A 2A"}) {
        const EFI_GUID Uuid = UuidOf(Known);
        EXPECT_TRUE(VornElogCxlCheckComponentEventSectionType(&Uuid)) << Known;
    }
    const EFI_GUID Unknown = UuidOf("60 1D CB B3 9C 06 4E AB B8 AF 4E 9B FB 5C 96 25");
    EXPECT_FALSE(VornElogCxlCheckComponentEventSectionType(&Unknown));
    EXPECT_FALSE(VornElogCxlCheckComponentEventSectionType(&gCperSectionCxlProtocolGuid));
    EXPECT_FALSE(VornElogCxlCheckComponentEventSectionType(nullptr));
    EXPECT_EQ(VornCperGetCxlComponentSectionLength(&Unknown), 32u);
    EXPECT_EQ(VornCperGetCxlComponentRecordLength(&Unknown), 232u);
    EXPECT_EQ(VornCperGetCxlComponentSectionLength(nullptr), 32u);
    EXPECT_NE(Machine.TraceLog().find("VornCperGetCxlComponentSectionLength: ERROR CXL Component event record "
                                      "identifier UUID 601dcbb3-9c06-4eab-b8af-4e9bfb5c9625 is not recognized\n"),
              std::string::npos);
}

TEST(CxlSections, RefuseBadArgumentsBeforeTheyWrite) {
    Simulator::Simulation Machine(WithGoldenClock());
    PCI_DEVICE_STATE Quiet = AgentOf(2), Failing = AgentOf(2);
    Failing.Cxl.ErrorStatus.HandleFatal = TRUE;
    Failing.Cxl.RasCapabilityValid = TRUE;
    std::vector<std::uint8_t> Record(912, 0xCC);
    auto* const Cper = reinterpret_cast<CPER_RECORD*>(Record.data());
    const auto Protocol = [](auto* Slot, auto* State, UINT32 Length, CPER_RECORD* Into) {
        return VornCperCreateCxlProtocol(DEBUG_VERBOSE, 0, 1, 0, 0, Slot, State, FALSE, Length, Into);
    };
    constexpr PCI_SLOT_NUMBER_DATA* NoSlot = nullptr;
    constexpr PCI_DEVICE_STATE* NoState = nullptr;
    EXPECT_EQ(Protocol(NoSlot, &Failing, 912, Cper), EFI_INVALID_PARAMETER);
    EXPECT_EQ(Protocol(&Slot3, NoState, 912, Cper), EFI_INVALID_PARAMETER);
    EXPECT_EQ(Protocol(&Slot3, &Failing, 912, nullptr), EFI_INVALID_PARAMETER);
    EXPECT_EQ(Protocol(&Slot3, &Quiet, 912, Cper), EFI_UNSUPPORTED);
    EXPECT_EQ(Protocol(&Slot3, &Failing, 851, Cper), EFI_BUFFER_TOO_SMALL);

    const EFI_GUID Uuid = UuidOf(DramEvent), Unknown = gCperSectionPcieGuid;
    const auto Component = [&](auto* Slot, auto* State, const EFI_GUID* Type, const void* Event, UINT32 Length) {
        return VornCperCreateCxlComponent(DEBUG_VERBOSE, 0, 1, 0, 0, Slot, State, FALSE, Type, 0, Event, Length,
                                          Cper);
    };
    EXPECT_EQ(Component(NoSlot, &Quiet, &Uuid, &Quiet, 360), EFI_INVALID_PARAMETER);
    EXPECT_EQ(Component(&Slot3, NoState, &Uuid, &Quiet, 360), EFI_INVALID_PARAMETER);
    EXPECT_EQ(Component(&Slot3, &Quiet, nullptr, &Quiet, 360), EFI_INVALID_PARAMETER);
    EXPECT_EQ(Component(&Slot3, &Quiet, &Uuid, nullptr, 360), EFI_INVALID_PARAMETER);
    EXPECT_EQ(Component(&Slot3, &Quiet, &Unknown, &Quiet, 360), EFI_UNSUPPORTED);
    EXPECT_EQ(Component(&Slot3, &Quiet, &Uuid, &Quiet, 359), EFI_BUFFER_TOO_SMALL);
    EXPECT_EQ(std::vector<std::uint8_t>(912, 0xCC), Record);
}

}  // namespace
