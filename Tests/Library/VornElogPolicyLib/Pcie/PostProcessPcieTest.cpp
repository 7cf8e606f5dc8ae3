// What becomes of filed PCIe and CXL records at the end of the SMI.
#include "Library/VornElogPolicyLib/Pcie/PostProcessPcie.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Include/RasAcpiSmmData.h"
#include "Library/VornElogBaseLib/Queue.h"
#include "Library/VornElogPolicyLib/Notification/OsNotification.h"
#include "Tests/Library/VornElogPolicyLib/Pcie/PcieMachine.h"

using Bodies = std::vector<std::string>;

namespace {

// Functions at segment 0: a record names one by bus, device and function.
struct PcieRecord : TestRecord {
    PcieRecord(UINT8 Bus, UINT8 Device, UINT8 Function, UINT32 Header, UINT32 Descriptor, UINT32 PortType = 0)
        : TestRecord(gCperSectionPcieGuid, Header, 208) {
        Put(176, Descriptor, 4).Put(208, PortType, 4).Put(231, Function, 1).Put(232, Device, 1).Put(235, Bus, 1);
    }
};
struct CxlProtocolRecord : TestRecord {
    CxlProtocolRecord(UINT8 Bus, UINT32 Header, UINT32 Descriptor)
        : TestRecord(gCperSectionCxlProtocolGuid, Header, 652) {
        Put(176, Descriptor, 4).Put(208, 2, 1).Put(218, Bus, 1);
    }
};
struct CxlComponentRecord : TestRecord {
    static constexpr EFI_GUID DramEvent{0xB3CB1D60, 0x069C, 0xAB4E, {0xB8, 0xAF, 0x4E, 0x9B, 0xFB, 0x5C, 0x96, 0x24}};
    CxlComponentRecord(UINT8 Bus, UINT32 Severity) : TestRecord(DramEvent, Severity, 160) {
        Put(176, Severity, 4).Put(218, Bus, 1);
    }
};

PCI_DEVICE_STATE StateOf(UINT8 Bus, UINT8 Device, UINT8 Function, unsigned PortType) {
    PCI_DEVICE_STATE State{};
    State.PciAddress = PackPciAddress(0, Bus, Device, Function);
    SetCapturedRegister32(State.PciHeader, PCI_VENDOR_ID, 0xABCD1234);
    State.IsPcie = TRUE;
    State.PcieCapabilityOffset = 0x50;
    SetCapturedRegister16(State.PcieCapability, PCIE_CAPABILITIES, static_cast<UINT16>(PortType << 4 | 2));
    State.Pcie.Characteristics.IsRootPort = PortType == PcieRootPort;
    State.Pcie.Characteristics.IsSwitchDownstreamPort = PortType == PcieSwitchDownstreamPort;
    State.Pcie.Characteristics.IsRootComplexEventCollector = PortType == PcieRootComplexEventCollector;
    State.Pcie.ErrorStatus.HandleFatal = TRUE;
    State.PcieRootPortData.IoHubDataValid = TRUE;
    State.PcieRootPortData.IoHubData = {1, 1, 0, 2, 0xEE, 3, 4, 5, 6, 0, 0x0C};
    State.PcieRootPortData.LogicalBridgePciAddress = PackPciAddress(0, 0x0C, 1, 1);
    State.PcieRootPortData.PhysicalBridgePciAddress = PackPciAddress(0, 0x0C, 3, 2);
    return State;
}

// The root port above: bus 0C, socket 1, root bridge 2; hub 3 4 5 6, bridges 1.1 and 3.2.
const char* const RootPortData[] = {"C1 49 7E 42 00 0C", "C1 49 7E A0 1A 09", "C1 49 7E 56 34 00"};
const char* const Ids[] = {"C1 1A 7E 00 00 34", "C1 1A 7E 00 01 12", "C1 1A 7E 00 02 CD", "C1 1A 7E 00 03 AB"};

template <std::size_t Count>
Bodies& operator<<(Bodies& To, const char* const (&Texts)[Count]) {
    To.insert(To.end(), Texts, Texts + Count);
    return To;
}
Bodies& operator<<(Bodies& To, const char* Text) {
    To.push_back(Text);
    return To;
}

class PostProcessMachine : public PcieMachine {
 public:
    using PcieMachine::PcieMachine;

    // Queues the state; the reference holds until the queue is cleared.
    PCI_DEVICE_STATE& Queue(const PCI_DEVICE_STATE& State) {
        QueueAdd(Policy.pQueuePciDeviceData, &State, sizeof(State));
        return *static_cast<PCI_DEVICE_STATE*>(Policy.pQueuePciDeviceData->pTail->pData);
    }
    static CPER_RECORD& File(TestRecord&& Record) {
        return *Record.Into(Policy.pPciFiniteBuffer)->pCper;
    }
    static CPER_RECORD& File(TestRecord& Record) {
        return *Record.Into(Policy.pPciFiniteBuffer)->pCper;
    }
    void Run() {
        Forget();
        VornElogSmmPostProcessErrorRecordsPci();
    }
};

Simulator::Configuration Mode(bool IsDiagnostic, bool IsInPost) {
    Simulator::Configuration Settings;
    if (IsDiagnostic) {
        Settings.Attributes["CorErrLoggingThreshold"] = "Disabled";
    }
    if (IsInPost) {
        Settings.Missing.insert("gEdkiiSmmReadyToBootProtocolGuid");
    }
    return Settings;
}

enum Kind { Pcie, CxlProtocol, CxlComponent };
struct Decision {
    Kind What;
    bool IsDiagnostic, IsInPost, IsStorm;
    UINT32 Header, Descriptor;
    bool IsNotified, IsLogged, IsNmi;
    UINT32 HeaderAfter, DescriptorAfter;
};

const Decision Decisions[] = {
    // Corrected: PCIe in diagnostic mode only, and when POST is over; CXL always.
    {Pcie, false, false, false, 2, 2, false, false, false, 2, 2},
    {Pcie, true, false, false, 2, 2, true, true, false, 2, 2},
    {Pcie, true, true, false, 2, 2, false, false, false, 2, 2},
    {Pcie, true, false, true, 2, 2, true, true, false, 2, 2},
    {CxlProtocol, false, false, false, 2, 2, true, true, false, 2, 2},
    {CxlProtocol, false, true, false, 2, 2, true, true, false, 2, 2},
    {CxlProtocol, true, false, true, 2, 2, true, true, false, 2, 2},
    {CxlComponent, false, true, true, 2, 2, true, false, false, 2, 2},
    // Uncorrected: fatal in the section, overall during a storm only.
    {Pcie, false, true, false, 0, 0, true, true, true, 0, 1},
    {Pcie, true, false, false, 0, 1, true, true, true, 0, 1},
    {Pcie, false, false, true, 0, 0, true, true, true, 1, 1},
    {CxlProtocol, false, false, false, 0, 0, true, true, true, 0, 1},
    {CxlProtocol, false, false, true, 0, 1, true, true, true, 1, 1},
    {CxlComponent, false, false, false, 0, 0, true, false, false, 0, 1},
    {CxlComponent, false, false, true, 0, 1, true, false, true, 1, 1},
    {CxlComponent, false, false, false, 1, 1, true, false, true, 1, 1},
};

TEST(PostProcessPcie, DecidesByModePostAndStorm) {
    for (const Decision& Test : Decisions) {
        SCOPED_TRACE(testing::Message() << "row " << &Test - Decisions);
        PostProcessMachine Machine(Mode(Test.IsDiagnostic, Test.IsInPost));
        PCI_DEVICE_STATE State = StateOf(0x4E, 0, 0, PcieEndpoint);
        State.Cxl.IsCxl = Test.What != Pcie;
        State.Pcie.SmiStorm.UncorrectedError = Test.IsStorm && Test.What == Pcie;
        State.Cxl.SmiStorm.ProtocolUncorrectedError = Test.IsStorm && Test.What == CxlProtocol;
        State.Cxl.SmiStorm.ComponentFatalOrFailure = Test.IsStorm && Test.What == CxlComponent;
        Machine.Queue(State);
        CPER_RECORD& Record = Test.What == Pcie ? Machine.File(PcieRecord(0x4E, 0, 0, Test.Header, Test.Descriptor))
                              : Test.What == CxlProtocol
                                  ? Machine.File(CxlProtocolRecord(0x4E, Test.Header, Test.Descriptor))
                                  : Machine.File(CxlComponentRecord(0x4E, Test.Header).Put(176, Test.Descriptor, 4));
        Machine.Run();
        EXPECT_EQ(Machine.Sel().empty(), !Test.IsLogged);
        // GHES gets the severities folded from corrected on, which nothing raises.
        EXPECT_EQ(Machine.Events("ghes-log", "severity"), Test.IsNotified ? Bodies{"0x2"} : Bodies{});
        EXPECT_EQ(ApeiSciCause, Test.IsNotified ? 0x20000000u : 0u);
        EXPECT_EQ(VornApeiIssueNmiFlag, Test.IsNmi);
        EXPECT_EQ(Record.Header.ErrorSeverity, Test.HeaderAfter);
        EXPECT_EQ(Record.Descriptor.Severity, Test.DescriptorAfter);
        EXPECT_EQ(Machine.Traced("SMI storm detected, adjust CPER severity to all fatal"),
                  Test.IsStorm && Test.Descriptor != 2 && Test.What != CxlComponent);
        EXPECT_TRUE(Machine.Traced("VornElogSmmPostProcessErrorRecordsPci: PCI/CXL error logging completed"));
    }
}

// Events name the function (DE 16 74, segment and class, function, bus): class 1, severity 3 fatal.
TEST(PostProcessPcie, ADownstreamDeviceSendsEventAndIdEachTimeAndTheRootPortOnce) {
    PostProcessMachine Machine;
    Machine.Queue(StateOf(0x4E, 0x0A, 1, PcieEndpoint));
    for (const UINT32 Descriptor : {1, 0}) {
        Machine.File(PcieRecord(0x4E, 0x0A, 1, 0, Descriptor));
    }
    Machine.Run();
    Bodies Expected;
    Expected << "DE 16 74 07 51 4E" << Ids << RootPortData << "DE 16 74 07 51 4E" << Ids;
    EXPECT_EQ(Machine.Sel(), Expected);
}

// The severity is that of everything handled, folded in the order of the classes; other classes leave the record's.
TEST(PostProcessPcie, EventsTakeTheFoldedSeverity) {
    const struct {
        bool Correctable, NonFatal, Fatal;
        UINT32 Descriptor;
        const char* Event;
    } Tests[] = {
        {false, true, false, 0, "DE 16 74 07 00 4E"},  {false, false, true, 1, "DE 16 74 07 00 4E"},
        {true, false, true, 1, "DE 16 74 06 00 4E"},    // the correctable class comes first and stays
        {false, false, false, 0, "DE 16 74 07 00 4E"},  // an unsupported request
        {true, false, false, 2, "DE 16 74 06 00 4E"},
    };
    for (const auto& Test : Tests) {
        PostProcessMachine Machine(Mode(true, false));
        PCI_DEVICE_STATE State = StateOf(0x4E, 0, 0, PcieEndpoint);
        State.Pcie.ErrorStatus.HandleCorrectable = Test.Correctable;
        State.Pcie.ErrorStatus.HandleNonFatal = Test.NonFatal;
        State.Pcie.ErrorStatus.HandleFatal = Test.Fatal;
        Machine.Queue(State);
        Machine.File(PcieRecord(0x4E, 0, 0, Test.Descriptor == 2 ? 2 : 0, Test.Descriptor));
        Machine.Run();
        ASSERT_FALSE(Machine.Sel().empty());
        EXPECT_EQ(Machine.Sel()[0], Test.Event);
    }
}

TEST(PostProcessPcie, ARootPortSpeaksForTheOneDeviceBelowItOnceARun) {
    const struct {
        UINT8 Secondary, Subordinate;
        bool IsPresent;
        std::vector<const char*> Below;
    } Tests[] = {
        {0x0D,
         0x0D,
         true,
         {"DE 16 74 07 00 0D", "C1 1A 7E 00 00 34", "C1 1A 7E 00 01 12", "C1 1A 7E 00 02 CD", "C1 1A 7E 00 03 AB"}},
        {0x0D, 0x0D, false, {"DE 16 74 07 00 0D"}},
        {0x0D, 0x0F, true, {}},
        {0x00, 0x00, true, {}},
    };
    for (const auto& Test : Tests) {
        PostProcessMachine Machine;
        if (Test.IsPresent) {
            Machine.Add(0x0D, 0, 0, PcieEndpoint);
        }
        PCI_DEVICE_STATE State = StateOf(0x0C, 1, 1, PcieRootPort);
        State.PciHeader[PCI_SECONDARY_BUS_NUMBER] = Test.Secondary;
        State.PciHeader[PCI_SUBORDINATE_BUS_NUMBER] = Test.Subordinate;
        Machine.Queue(State);
        Machine.File(PcieRecord(0x0C, 1, 1, 0, 1, PcieRootPort));
        Machine.File(PcieRecord(0x0C, 1, 1, 0, 1, PcieRootPort));
        Machine.Run();
        Bodies Expected(Test.Below.begin(), Test.Below.end());
        Expected << "DE 16 74 07 09 0C" << RootPortData;
        EXPECT_EQ(Machine.Sel(), Expected);
        EXPECT_EQ(Machine.Events("ghes-log", "severity").size(), 2u);
        // The next run starts afresh.
        Machine.Run();
        EXPECT_EQ(Machine.Sel(), Expected);
    }
}

TEST(PostProcessPcie, ARecordThatFailsDoesNotStopTheWalk) {
    PostProcessMachine Machine;
    Machine.Queue(StateOf(0x4E, 0, 0, PcieEndpoint));
    Machine.File(TestRecord(gCperSectionPlatformMemoryGuid, 1, 80));
    Machine.File(PcieRecord(0x4F, 0, 0, 0, 1));  // of a function that was not captured
    Machine.File(CxlProtocolRecord(0x4F, 0, 1));
    Machine.File(CxlComponentRecord(0x4F, 1));
    Machine.File(PcieRecord(0x4E, 0, 0, 0, 1));
    Machine.Fail("ElogLogCper");
    Machine.Run();
    EXPECT_TRUE(Machine.Traced("Unrecognized CPER SectionType GUID, skipping to next error record..."));
    EXPECT_TRUE(Machine.Traced("unable to retrieve PCIe device state ptr for SBDF 0000:4F:00.0, aborting..."));
    EXPECT_EQ(Machine.Sel().size(), 8u);
    EXPECT_EQ(VornApeiIssueSciFlag, FALSE);
    EXPECT_EQ(VornApeiIssueNmiFlag, TRUE);  // asked for although the log failed

    const std::uint64_t Blocks = Machine.Blocks();
    VornElogSmmClearErrorRecordBuffersPci();
    EXPECT_EQ(Machine.Blocks(), Blocks - 10);
    EXPECT_TRUE(FiniteBufferIsEmpty(Policy.pPciFiniteBuffer));
}

}  // namespace
