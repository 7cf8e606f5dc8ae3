// Records with a PCI Express section against hand-worked bytes.
#include "Library/VornCperCreateLib/PcieSection.h"

#include <gtest/gtest.h>

#include <cstring>

#include "Tests/Support/GoldenRecord.h"

namespace {

constexpr UINT32 RECORD_LENGTH = 408;

// Vendor 1234, device ABCD, command 0106, status 4010; revision 02 and the class; cache line, latency, header type.
const char* const BridgeHeader =
    "34 12 CD AB 06 01 10 40 02 00 04 06 10 00 01 00  00 00 00 00 00 00 00 00 00 0D 0F 00 F1 01 00 20"
    "FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF  FF FF FF FF 40 FF FF FF FF FF FF FF FF 01 03 00";
const char* const EndpointHeader =
    "34 12 CD AB 06 01 10 40 02 02 08 01 10 00 80 00  00 00 00 00 00 00 00 00 00 0D 0F 00 F1 01 00 20"
    "FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF  FF FF FF FF 40 FF FF FF FF FF FF FF FF 01 03 00";

struct GoldenCase {
    const char* Name;
    const char* Header;
    unsigned PortType;
    UINT8 PcieCapabilityOffset;
    UINT16 AerOffset;
    UINT8 PCIE_ERROR_STATUS::*Handle;
    BOOLEAN PreviousError;
    PCI_SLOT_NUMBER_DATA Slot;
    const char *HeaderSeverity, *DescriptorSeverity, *HeaderFlags, *Fru;
    const char *Valid, *PortTypeBytes, *CommandStatus, *ClassCode, *SecondaryBusAndSlot, *BridgeControlStatus;
};

constexpr PCI_SLOT_NUMBER_DATA NoSlot{0, 1, {.SlotNumber = 0xFFFFFFFF}};
constexpr PCI_SLOT_NUMBER_DATA Bay2Slot5{1, 0, {.Drive = {2, 5}}};
constexpr PCI_SLOT_NUMBER_DATA Slot3{1, 1, {.SlotNumber = 3}};

PCI_DEVICE_STATE StateOf(const GoldenCase& Case) {
    PCI_DEVICE_STATE State{};
    const auto Header = BytesOf(Case.Header);
    std::memcpy(State.PciHeader, Header.data(), sizeof(State.PciHeader));
    const auto Capability = CountingBytes(0x40, 60);
    std::memcpy(State.PcieCapability, Capability.data(), Capability.size());
    State.PcieCapability[2] = static_cast<UINT8>(Case.PortType << 4 | 2);
    const auto Aer = CountingBytes(0x90, 76);
    std::memcpy(State.AerCapability, Aer.data(), Aer.size());
    State.PcieCapabilityOffset = Case.PcieCapabilityOffset;
    State.AerOffset = Case.AerOffset;
    if (Case.Handle != nullptr) {
        State.Pcie.ErrorStatus.*Case.Handle = TRUE;
    }
    if (Case.PcieCapabilityOffset == 0) {
        std::memset(State.PcieCapability, 0, sizeof(State.PcieCapability));
    }
    return State;
}

std::string GoldenRecord(const GoldenCase& Case) {
    const GoldenFront Front{Case.HeaderSeverity,
                            Case.DescriptorSeverity,
                            Case.HeaderFlags,
                            "98 01",
                            "D0 00",
                            "54 E9 95 D9 C1 BB 0F 43 AD 91 B4 4D CB 3C 6F 35",
                            Case.Fru};
    char TypeByte[4];
    std::snprintf(TypeByte, sizeof(TypeByte), "%X2", Case.PortType);
    const std::string Capability =
        Case.PcieCapabilityOffset == 0 ? Zeros(60) : "40 41 " + std::string(TypeByte) + Counting(0x43, 57);
    const std::string Aer =
        Case.PcieCapabilityOffset == 0 || Case.AerOffset == 0 ? Zeros(96) : Counting(0x90, 76) + Zeros(20);
    // Function 3, device 1F, segment 0001, bus 0C.
    return Front.Text() + Case.Valid + " 00 00 00 00 00 00 00  " + Case.PortTypeBytes + " 00 00 00  00 03 00 00  " +
           Case.CommandStatus + "  00 00 00 00  34 12 CD AB  " + Case.ClassCode + "  03 1F 01 00 0C  " +
           Case.SecondaryBusAndSlot + " 00" + Zeros(8) + Case.BridgeControlStatus + " " + Capability + Aer;
}

class GoldenPcieRecord : public testing::TestWithParam<GoldenCase> {};

TEST_P(GoldenPcieRecord, HoldsEveryByteOfThePublishedLayout) {
    Simulator::Simulation Machine(WithGoldenClock());
    const PCI_DEVICE_STATE State = StateOf(GetParam());
    ASSERT_EQ(RECORD_LENGTH, VornCperGetPcieRecordLength());
    std::vector<std::uint8_t> Record(RECORD_LENGTH);
    EXPECT_EQ(EFI_SUCCESS,
              VornCperCreatePcie(DEBUG_VERBOSE, 1, 0x0C, 0x1F, 3, &GetParam().Slot, &State, GetParam().PreviousError,
                                 RECORD_LENGTH, reinterpret_cast<CPER_RECORD*>(Record.data())));
    EXPECT_EQ(HexLines(BytesOf(GoldenRecord(GetParam()))), HexLines(Record));
}

// Valid bits: 0 port type, 1 version, 2 command and status, 3 device ID, 5 bridge, 6 capability, 7 AER.
const GoldenCase GoldenCases[] = {
    {"RootPort", BridgeHeader, 4, 0x58, 0x150, &PCIE_ERROR_STATUS::HandleNonFatal, FALSE, Bay2Slot5, "00", "00", "00",
     "PCIe Non-Fatal", "EF", "04", "06 01 10 40", "00 04 06", "0D 28 10", "00 20 03 00"},
    {"Endpoint", EndpointHeader, 0, 0x58, 0x150, &PCIE_ERROR_STATUS::HandleCorrectable, FALSE, Slot3, "02", "02",
     "01", "PCIe Correctable", "CF", "00", "06 01 10 40", "02 08 01", "00 18 00", "00 00 00 00"},
    {"PcieToPciBridge", BridgeHeader, 7, 0x58, 0x150, &PCIE_ERROR_STATUS::HandleFatal, FALSE, NoSlot, "00", "01",
     "00", "PCIe Fatal", "EF", "07", "06 01 10 40", "00 04 06", "0D 00 00", "00 20 03 00"},
    {"EndpointWithoutAer", EndpointHeader, 1, 0x58, 0, &PCIE_ERROR_STATUS::HandleNonFatal, FALSE, NoSlot, "00", "00",
     "00", "PCIe Non-Fatal", "4F", "01", "06 01 10 40", "02 08 01", "00 00 00", "00 00 00 00"},
    // An AER offset means nothing without the PCI Express capability.
    {"LegacyPci", EndpointHeader, 0, 0, 0x150, nullptr, FALSE, NoSlot, "01", "01", "00", "", "0F", "00",
     "06 01 10 40", "02 08 01", "00 00 00", "00 00 00 00"},
    {"LegacyPciBridge", BridgeHeader, 0, 0, 0, nullptr, FALSE, NoSlot, "01", "01", "00", "", "2F", "00",
     "06 01 10 40", "00 04 06", "0D 00 00", "00 20 03 00"},
    {"PreviousErrorOfARootPort", BridgeHeader, 4, 0x58, 0x150, &PCIE_ERROR_STATUS::HandleCorrectable, TRUE, NoSlot,
     "01", "01", "02", "PCIe Correctable", "CB", "04", "00 00 00 00", "00 04 06", "0D 00 00", "00 00 00 00"},
};
INSTANTIATE_TEST_SUITE_P(EachFunction, GoldenPcieRecord, testing::ValuesIn(GoldenCases),
                         [](const testing::TestParamInfo<GoldenCase>& Info) { return Info.param.Name; });

struct Created {
    EFI_STATUS Status;
    UINT32 Header, Descriptor;
    std::string Fru;
};
Created Create(const PCI_DEVICE_STATE& State, const PCI_SLOT_NUMBER_DATA& Slot = NoSlot) {
    std::vector<std::uint8_t> Record(RECORD_LENGTH);
    auto* Cper = reinterpret_cast<CPER_RECORD*>(Record.data());
    const EFI_STATUS Status =
        VornCperCreatePcie(DEBUG_VERBOSE, 0, 1, 0, 0, &Slot, &State, FALSE, RECORD_LENGTH, Cper);
    return {Status, Cper->Header.ErrorSeverity, Cper->Descriptor.Severity, Cper->Descriptor.FruString};
}

TEST(PcieSection, TheFirstHandledClassGivesSeveritiesAndText) {
    Simulator::Simulation Machine(WithGoldenClock());
    const struct {
        UINT8 PCIE_ERROR_STATUS::*Handle;
        UINT32 Header, Descriptor;
        const char* Fru;
    } Classes[] = {
        {&PCIE_ERROR_STATUS::HandleDpcEvent, 0, 0, "PCIe DPC Event"},
        {&PCIE_ERROR_STATUS::HandleFatal, 0, 1, "PCIe Fatal"},
        {&PCIE_ERROR_STATUS::HandleUnsupportedRequest, 0, 0, "PCIe UR"},
        {&PCIE_ERROR_STATUS::HandleNonFatal, 0, 0, "PCIe Non-Fatal"},
        {&PCIE_ERROR_STATUS::HandleCorrectable, 2, 2, "PCIe Correctable"},
        {&PCIE_ERROR_STATUS::HandleRpPioFatal, 0, 1, "PCIe RpPio Fatal"},
    };
    // Every class, alone and with all those behind it.
    for (const bool WithLaterOnes : {false, true}) {
        for (std::size_t At = 0; At < std::size(Classes); At++) {
            PCI_DEVICE_STATE State{};
            State.PcieCapabilityOffset = 0x40;
            for (std::size_t Set = At; Set < (WithLaterOnes ? std::size(Classes) : At + 1); Set++) {
                State.Pcie.ErrorStatus.*Classes[Set].Handle = TRUE;
            }
            const Created Made = Create(State);
            EXPECT_EQ(Made.Status, EFI_SUCCESS) << Classes[At].Fru;
            EXPECT_EQ(Made.Header, Classes[At].Header) << Classes[At].Fru;
            EXPECT_EQ(Made.Descriptor, Classes[At].Descriptor) << Classes[At].Fru;
            EXPECT_EQ(Made.Fru, Classes[At].Fru);
        }
    }
    PCI_DEVICE_STATE Quiet{};
    Quiet.PcieCapabilityOffset = 0x40;
    EXPECT_EQ(Create(Quiet).Status, EFI_UNSUPPORTED);
    EXPECT_NE(Machine.TraceLog().find("VornCperCreatePcie: ERROR PCIe device not requiring error reporting"),
              std::string::npos);
}

TEST(PcieSection, SlotsAreEncodedAboveThreeReservedBits) {
    const struct {
        PCI_SLOT_NUMBER_DATA Slot;
        UINT16 Encoded;
    } Cases[] = {
        {{0, 0, {.Drive = {2, 5}}}, 0},           {{1, 0, {.Drive = {2, 5}}}, 0x1028},
        {{1, 0, {.Drive = {0, 1}}}, 0x0008},      {{1, 0, {.Drive = {0x1F, 0xFF}}}, 0xFFF8},
        {{1, 1, {.SlotNumber = 0x0205}}, 0x1028}, {{1, 7, {.SlotNumber = 0xFFFF0001}}, 0x0008},
        {{1, 1, {.SlotNumber = 0x2001}}, 0x0008},  // more than fits
    };
    for (const auto& Case : Cases) {
        EXPECT_EQ(VornCperGetSlotNumber(Case.Slot), Case.Encoded);
    }
}

TEST(PcieSection, RefusesBadArgumentsBeforeItWrites) {
    Simulator::Simulation Machine(WithGoldenClock());
    PCI_DEVICE_STATE Quiet{}, Legacy{};
    Quiet.PcieCapabilityOffset = 0x40;
    std::vector<std::uint8_t> Record(RECORD_LENGTH, 0xCC);
    auto* const Cper = reinterpret_cast<CPER_RECORD*>(Record.data());
    const auto Fill = [](auto* Slot, auto* State, UINT32 Length, CPER_RECORD* Into) {
        return VornCperCreatePcie(DEBUG_VERBOSE, 0, 1, 0, 0, Slot, State, FALSE, Length, Into);
    };
    EXPECT_EQ(Fill(static_cast<PCI_SLOT_NUMBER_DATA*>(nullptr), &Legacy, RECORD_LENGTH, Cper), EFI_INVALID_PARAMETER);
    EXPECT_EQ(Fill(&NoSlot, static_cast<PCI_DEVICE_STATE*>(nullptr), RECORD_LENGTH, Cper), EFI_INVALID_PARAMETER);
    EXPECT_EQ(Fill(&NoSlot, &Legacy, RECORD_LENGTH, nullptr), EFI_INVALID_PARAMETER);
    EXPECT_EQ(Fill(&NoSlot, &Quiet, RECORD_LENGTH, Cper), EFI_UNSUPPORTED);
    EXPECT_EQ(Fill(&NoSlot, &Legacy, RECORD_LENGTH - 1, Cper), EFI_BUFFER_TOO_SMALL);
    EXPECT_EQ(std::vector<std::uint8_t>(RECORD_LENGTH, 0xCC), Record);
}

}  // namespace
