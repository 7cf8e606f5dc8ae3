// The four AER classes: hand-worked answers for register states and for everything that screens errors out.
#include "Library/VornElogPolicyLib/Pcie/AerClasses.h"

#include <gtest/gtest.h>

#include "Tests/Library/VornElogPolicyLib/Pcie/PcieMachine.h"

namespace {

struct Registers {
    std::uint32_t DeviceStatus = 0, Uncorrectable = 0, Correctable = 0;  // live
    std::uint32_t DeviceControl = 0xF, UncorrectableMask = 0, CorrectableMask = 0;
    std::uint32_t Severity = 0x00462030;  // DLP, SDES, FCP, RO, MTLP, UIE are fatal
    std::array<std::uint32_t, 4> Header = MEMORY_READ;
    bool HasAer = true;
    std::uint32_t PciStatus = 0x0010;
    std::uint32_t RootErrorStatus = 0x00000004;  // of the root port: one uncorrectable error
};

struct Case {
    const char* Name;
    Registers Set;
    const char* Expected;
    void (*Before)(PCI_DEVICE_STATE& State) = [](PCI_DEVICE_STATE&) {};
    bool IsSpurious = false;  // errors of a function that reports none
};

constexpr std::uint32_t SLD = 1 << 5, POISON = 1 << 12, CTO = 1 << 14, CA = 1 << 15, MALFORMED = 1 << 18,
                        UR = 1 << 20, UIE = 1 << 22, RECEIVER = 1 << 0, ADVISORY = 1 << 13, CIE = 1 << 14;

void HotRemoved(PCI_DEVICE_STATE& State) {
    State.Pcie.ErrorStatus.DetectedHotRemoval = TRUE;
}
void CxlFatal(PCI_DEVICE_STATE& State) {
    State.Cxl.ErrorStatus.DetectedFatal = TRUE;
}
void CxlNonFatal(PCI_DEVICE_STATE& State) {
    State.Cxl.ErrorStatus.DetectedNonFatal = TRUE;
}
void CxlCorrectable(PCI_DEVICE_STATE& State) {
    State.Cxl.ErrorStatus.DetectedCorrectable = TRUE;
}
void WithoutLink(PCI_DEVICE_STATE& State) {
    State.PcieRootPortData.pPciDeviceStateUpstreamRootPort = nullptr;
}
void RootPortWithoutAer(PCI_DEVICE_STATE& State) {
    State.PcieRootPortData.pPciDeviceStateUpstreamRootPort->AerOffset = 0;
}

const Case Cases[] = {
    {"nothing", {}, ""},
    // Device Status alone, without AER and with an AER that shows nothing.
    {"fatal", {.DeviceStatus = 0x4, .HasAer = false}, "F.DCH"},
    {"fatal, reporting off", {.DeviceStatus = 0x4, .DeviceControl = 0xB, .HasAer = false}, "F.DC"},
    {"unsupported request", {.DeviceStatus = 0x8, .HasAer = false}, "U.DCH"},
    {"non-fatal", {.DeviceStatus = 0x2, .HasAer = false}, "N.DCH"},
    {"correctable", {.DeviceStatus = 0x1, .HasAer = false}, "K.DCH"},
    {"all, reporting off", {.DeviceStatus = 0xF, .DeviceControl = 0, .HasAer = false}, "F.DC U.DC N.DC K.DC"},
    {"AER shows nothing", {.DeviceStatus = 0xF}, "F.DC U.DC N.DC K.DC"},
    // AER decides.
    {"fatal", {.DeviceStatus = 0x4, .Uncorrectable = MALFORMED}, "F.DCH"},
    {"fatal, not in Device Status", {.Uncorrectable = MALFORMED}, "F.DCH"},
    {"fatal, reporting off", {.DeviceStatus = 0x4, .Uncorrectable = MALFORMED, .DeviceControl = 0xB}, "F.DCH"},
    {"fatal, neither", {.Uncorrectable = MALFORMED, .DeviceControl = 0xB}, "F.DC", [](auto&) {}, true},
    {"fatal, masked", {.DeviceStatus = 0x4, .Uncorrectable = MALFORMED, .UncorrectableMask = MALFORMED}, "F.DC"},
    {"fatal, masked, neither",
     {.Uncorrectable = MALFORMED, .DeviceControl = 0, .UncorrectableMask = MALFORMED},
     "F.DC"},
    {"fatal, one of two masked", {.Uncorrectable = MALFORMED | SLD, .UncorrectableMask = SLD}, "F.DCH"},
    {"non-fatal", {.DeviceStatus = 0x2, .Uncorrectable = POISON}, "N.DCH+"},
    {"non-fatal, neither", {.Uncorrectable = POISON, .DeviceControl = 0xD}, "N.DC+", [](auto&) {}, true},
    {"non-fatal, masked", {.DeviceStatus = 0x2, .Uncorrectable = POISON, .UncorrectableMask = POISON}, "N.DC"},
    {"both severities", {.DeviceStatus = 0x6, .Uncorrectable = MALFORMED | POISON}, "F.DCH N.DCH+"},
    {"correctable", {.DeviceStatus = 0x1, .Correctable = RECEIVER}, "K.DCH"},
    {"correctable, masked", {.DeviceStatus = 0x1, .Correctable = RECEIVER, .CorrectableMask = RECEIVER}, "K.DC"},
    {"correctable, neither", {.Correctable = RECEIVER, .DeviceControl = 0xE}, "K.DC", [](auto&) {}, true},
    {"advisory", {.DeviceStatus = 0x1, .Correctable = ADVISORY}, "K.DCH"},
    {"system error", {.PciStatus = 0x4010}, "L.FSC"},
    // Unsupported requests belong to one class.
    {"UR", {.DeviceStatus = 0xA, .Uncorrectable = UR}, "U.DCH N.DC"},
    {"UR, advisory", {.DeviceStatus = 0x9, .Uncorrectable = UR, .Correctable = ADVISORY}, "U.DCH N.DC K.DC"},
    {"UR, advisory and another",
     {.DeviceStatus = 0x9, .Uncorrectable = UR, .Correctable = ADVISORY | RECEIVER},
     "U.DCH N.DC K.DCH"},
    {"UR and another", {.DeviceStatus = 0xA, .Uncorrectable = UR | CTO}, "U.DCH N.DCH+"},
    {"UR of a write that nothing decodes",
     {.DeviceStatus = 0xA, .Uncorrectable = UR, .Header = MemoryWrite(0xFD000000)},
     "U.DC N.DC"},
    {"UR, masked", {.DeviceStatus = 0x8, .Uncorrectable = UR, .UncorrectableMask = UR}, "U.DC N.DC"},
    {"UR, neither", {.Uncorrectable = UR, .DeviceControl = 0x7}, "U.DC N.DC", [](auto&) {}, true},
    {"UR, fatal", {.DeviceStatus = 0xC, .Uncorrectable = UR, .Severity = 0x00562030}, "F.DCH U.DC"},
    {"UR, fatal, in AER only", {.Uncorrectable = UR, .Severity = 0x00562030}, "F.DCH"},
    // Screens.
    {"CXL fatal", {.DeviceStatus = 0x4, .Uncorrectable = UIE}, "XF.D F.DC", CxlFatal},
    {"CXL non-fatal", {.DeviceStatus = 0x4, .Uncorrectable = UIE}, "XN.D F.DC", CxlNonFatal},
    {"CXL fatal and another", {.Uncorrectable = UIE | MALFORMED}, "XF.D F.DCH", CxlFatal},
    {"CXL, internal error non-fatal",
     {.DeviceStatus = 0x2, .Uncorrectable = UIE, .Severity = 0x00062030},
     "XF.D N.DC",
     CxlFatal},
    {"internal error without CXL", {.Uncorrectable = UIE}, "F.DCH XK.D", CxlCorrectable},
    {"CXL correctable", {.DeviceStatus = 0x1, .Correctable = CIE}, "XK.D K.DC", CxlCorrectable},
    {"CXL fatal, corrected internal error", {.DeviceStatus = 0x1, .Correctable = CIE}, "XF.D K.DCH", CxlFatal},
    {"removed", {.DeviceStatus = 0x4, .Uncorrectable = CTO | SLD, .Severity = 0x00466030}, "HOT F.DC", HotRemoved},
    {"removed, another", {.DeviceStatus = 0x4, .Uncorrectable = SLD | MALFORMED}, "HOT F.DCH", HotRemoved},
    {"not removed", {.DeviceStatus = 0x4, .Uncorrectable = SLD}, "F.DCH"},
    {"removed, UR", {.DeviceStatus = 0xA, .Uncorrectable = UR}, "HOT U.DC N.DC", HotRemoved},
    {"removed, non-fatal", {.DeviceStatus = 0x2, .Uncorrectable = CTO}, "HOT N.DCH+", HotRemoved},
    {"removed, correctable", {.DeviceStatus = 0x1, .Correctable = RECEIVER | CIE}, "HOT K.DC", HotRemoved},
    {"message, fatal", {.DeviceStatus = 0x4, .Uncorrectable = MALFORMED, .Header = DMTF_MESSAGE}, "F.DC"},
    {"message, UR", {.DeviceStatus = 0xA, .Uncorrectable = UR, .Header = DMTF_MESSAGE}, "U.DC N.DC"},
    {"message, non-fatal", {.DeviceStatus = 0x2, .Uncorrectable = CA, .Header = DMTF_MESSAGE}, "N.DC"},
    {"message, correctable", {.DeviceStatus = 0x1, .Correctable = RECEIVER, .Header = DMTF_MESSAGE}, "K.DCH"},
    {"message, several errors",
     {.DeviceStatus = 0xE, .Uncorrectable = MALFORMED | UR | CA, .Header = DMTF_MESSAGE, .RootErrorStatus = 0x0C},
     "F.DCH U.DCH N.DCH+"},
    {"message, no root port", {.Uncorrectable = MALFORMED, .Header = DMTF_MESSAGE}, "F.DCH", WithoutLink},
    {"message, root port without AER",
     {.Uncorrectable = MALFORMED, .Header = DMTF_MESSAGE},
     "F.DCH",
     RootPortWithoutAer},
    // The function is gone.
    {"all ones",
     {.DeviceStatus = 0xFFFF, .Uncorrectable = 0xFFFFFFFF, .Correctable = 0xFFFFFFFF, .PciStatus = 0xFFFF},
     "L.FSC F.DCH U.DCH N.DCH+ K.DCH"},
};

class AerClasses : public testing::Test {
 protected:
    // Status registers show their errors after the capture: they count as they are when they are looked at.
    PCI_DEVICE_STATE Classify(const Case& Test) {
        const Registers& Set = Test.Set;
        Machine.AddRootPort().Set(AER + AER_ROOT_ERROR_STATUS, 4, Set.RootErrorStatus);
        RootPort = Machine.Capture(PcieMachine::ROOT_BUS, 1, 0);
        auto& Device = Machine.Add(PcieMachine::BUS, 0, 0, PcieEndpoint, Set.HasAer);
        Device.Set(PCIE + PCIE_DEVICE_CONTROL, 2, Set.DeviceControl);
        if (Set.HasAer) {
            Device.Set(AER + AER_UNCORRECTABLE_MASK, 4, Set.UncorrectableMask)
                .Set(AER + AER_UNCORRECTABLE_SEVERITY, 4, Set.Severity)
                .Set(AER + AER_CORRECTABLE_MASK, 4, Set.CorrectableMask)
                .SetHeaderLog(Set.Header);
        }
        PCI_DEVICE_STATE State = Machine.Capture(PcieMachine::BUS, 0, 0, &RootPort);
        Test.Before(State);
        Device.Set(PCI_STATUS, 2, Set.PciStatus).Set(PCIE + PCIE_DEVICE_STATUS, 2, Set.DeviceStatus);
        if (Set.HasAer) {
            Device.Set(AER + AER_UNCORRECTABLE_STATUS, 4, Set.Uncorrectable)
                .Set(AER + AER_CORRECTABLE_STATUS, 4, Set.Correctable);
        }
        EXPECT_EQ(VornElogSmmCheckPcieErrorFatal(&State), EFI_SUCCESS);
        EXPECT_EQ(VornElogSmmCheckPcieErrorUnsupportedRequest(&State), EFI_SUCCESS);
        EXPECT_EQ(VornElogSmmCheckPcieErrorNonFatal(&State), EFI_SUCCESS);
        EXPECT_EQ(VornElogSmmCheckPcieErrorCorrectable(&State), EFI_SUCCESS);
        return State;
    }

    PcieMachine Machine;
    PCI_DEVICE_STATE RootPort{};
};

TEST_F(AerClasses, FlagsFollowFromRegistersAndScreens) {
    for (const Case& Test : Cases) {
        EXPECT_EQ(Flags(Classify(Test)), Test.Expected) << Test.Name;
        EXPECT_EQ(Machine.TracedSince("0000:0D:00.0 Clearing error status to prevent spurious error reporting, needs "
                                      "investigation!!!"),
                  Test.IsSpurious)
            << Test.Name;
    }
}

}  // namespace
