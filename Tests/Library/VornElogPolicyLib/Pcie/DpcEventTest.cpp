// Containment events: which are taken, what is done at once, and what BMC and OS learn of them.
#include "Library/VornElogPolicyLib/Pcie/DpcEvent.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Library/VornElogBaseLib/Queue.h"
#include "Library/VornElogPolicyLib/Pcie/DpcPostProcess.h"
#include "Library/VornElogPolicyLib/Pcie/PcieUceCount.h"
#include "Tests/Library/VornElogPolicyLib/Pcie/DpcMachine.h"

namespace {

using ::testing::ElementsAreArray;

using Bodies = std::vector<std::string>;

// Register 0x100 is the AER capability's, 0x180 the DPC capability's.
const Bodies CHIPSET = {"DD 17 74 02 08 20"};
const Bodies IDS = {"C1 1A 7E 00 00 34", "C1 1A 7E 00 01 12", "C1 1A 7E 00 02 CD", "C1 1A 7E 00 03 AB"};
const Bodies ROOT = {"C1 49 7E 01 00 20", "C1 49 7E A0 19 08", "C1 49 7E 01 00 00"};

Bodies Join(std::initializer_list<Bodies> Parts) {
    Bodies All;
    for (const Bodies& Part : Parts) {
        All.insert(All.end(), Part.begin(), Part.end());
    }
    return All;
}

TEST(DpcCheck, APortThatIsNotToSignalHasNoEvent) {
    struct Case {
        const char* About;
        std::uint16_t Control, Status;
        std::uint32_t RpPioStatus;
        bool IsRpPioKnown;  // DetectedRpPioFatal was set before
        const char* Flags;
    };
    for (const Case& Test :
         {Case{"trigger off", 1 << 4, TRIGGERED, 0, false, ""}, Case{"ERR_COR off", 1, TRIGGERED, 0, false, ""},
          Case{"ERR_COR off, trigger 2", 2, TRIGGERED | REASON_FATAL, 0, false, ""},
          Case{"not triggered", DPC_ON, REASON_FATAL, 0, false, ""},
          Case{"uncorrectable error", DPC_ON, TRIGGERED, 1, false, "E.DH"},
          Case{"trigger 2", 1 << 4 | 2, TRIGGERED | REASON_NON_FATAL, 0, false, "E.DH"},
          Case{"software", DPC_ON, TRIGGERED | REASON_SOFTWARE, 1, false, "E.DH"},
          Case{"RP PIO, nothing set any more", DPC_ON, TRIGGERED | REASON_RP_PIO, 0, false, "E.DH"},
          Case{"RP PIO", DPC_ON, TRIGGERED | REASON_RP_PIO, 1, false, "E.DH R.C"},
          Case{"RP PIO, taken as known", DPC_ON, TRIGGERED | REASON_RP_PIO, 1, true, "E.DH R.DH"},
          Case{"masked", DPC_ON, TRIGGERED | REASON_RP_PIO, 0x100, true, "E.DH R.DC"},
          Case{"with a system error", DPC_ON, TRIGGERED | REASON_RP_PIO, 0x200, true, "E.DH R.DC"}}) {
        DpcMachine Machine;
        Machine.RootPort->Set(DPC + DPC_CONTROL, 2, Test.Control).Set(DPC + DPC_STATUS, 2, Test.Status);
        Machine.RootPort->Set(DPC + DPC_RP_PIO_MASK, 4, 0x100).Set(DPC + DPC_RP_PIO_SYS_ERROR, 4, 0x200);
        PCI_DEVICE_STATE State = Machine.CapturePort(DpcMachine::RP_BUS, 1);
        State.Pcie.ErrorStatus.ClearDpcEvent = Test.Flags[0] == 'E' ? TRUE : FALSE;  // taken back by an event
        State.Pcie.ErrorStatus.DetectedRpPioFatal = Test.IsRpPioKnown ? TRUE : FALSE;
        // RP PIO Status is read as it is now.
        Machine.RootPort->Set(DPC + DPC_RP_PIO_STATUS, 4, Test.RpPioStatus);
        EXPECT_EQ(VornElogSmmCheckPcieErrorDpc(&State), EFI_SUCCESS) << Test.About;
        EXPECT_EQ(Flags(State), Test.Flags) << Test.About;
    }
    const DpcMachine Machine;
    EXPECT_EQ(VornElogSmmCheckPcieErrorDpc(nullptr), EFI_INVALID_PARAMETER);
    PCI_DEVICE_STATE NoDpc{};
    EXPECT_EQ(VornElogSmmCheckPcieErrorDpc(&NoDpc), EFI_UNSUPPORTED);
}

// The newest record's chipset data.
const PCI_SUPPORT_DATA& FiledSupportData() {
    FINITE_BUFFER* Buffer = Policy.pPciFiniteBuffer;
    return BufferSlot<ERROR_RECORD_BUFFER_ENTRY>(Buffer, Buffer->Tail - 1)->pKyrChipsetSupportData->Pci;
}

TEST(DpcEvent, TheOsGetsItsPortsAndTheFirmwareReleasesTheOthers) {
    struct Case {
        const char* About;
        bool IsSwitchPort, IsDpcOs;
        std::uint16_t Status;
        UINT32 Before;  // errors
        bool IsReleased;
        const char* Entry;
        PCIE_UCE_LIMIT_STATUS After;
        std::uint16_t DeviceControl;
        UINT8 ClearFatal, ClearNonFatal;
    };
    constexpr const char* EMPTY = "00 00 00 00 00 00 00 00 00";
    constexpr const char* HARDWARE = "01 08 20 00 08 20 00 00 02";
    constexpr const char* SOFTWARE = "01 08 20 00 08 20 00 00 82";
    constexpr auto UNDER = PcieUceUnderLimit;
    for (const Case& Test :
         {Case{"other OS, fatal", false, false, TRIGGERED | REASON_FATAL, 0, true, HARDWARE, UNDER, 0xF, 1, 0},
          Case{"other OS, non-fatal", false, false, TRIGGERED | REASON_NON_FATAL, 0, true, HARDWARE, UNDER, 0xF, 0,
               1},
          Case{"other OS, own error", false, false, TRIGGERED, 0, true, HARDWARE, UNDER, 0xF, 1, 0},
          Case{"other OS, software", false, false, TRIGGERED | REASON_SOFTWARE, 17, true, SOFTWARE, PcieUceOverLimit,
               0x8, 1, 0},
          Case{"other OS, the 16th", false, false, TRIGGERED, 15, true, HARDWARE, PcieUceAtLimit, 0x8, 1, 0},
          Case{"switch port", true, false, TRIGGERED, 0, true, "01 20 22 00 08 20 00 00 02", UNDER, 0xF, 1, 0},
          Case{"DPC-aware OS", false, true, TRIGGERED | REASON_FATAL, 0, false, HARDWARE, UNDER, 0xF, 0, 0},
          Case{"DPC-aware OS, software", false, true, TRIGGERED | REASON_SOFTWARE, 15, false, SOFTWARE,
               PcieUceAtLimit, 0xF, 0, 0},
          Case{"DPC-aware OS, hardware over the limit", false, true, TRIGGERED, 17, false, HARDWARE, PcieUceOverLimit,
               0xF, 0, 0},
          // Held down for good: no entry, no count.
          Case{"DPC-aware OS, software over the limit", false, true, TRIGGERED | REASON_SOFTWARE, 17, false, EMPTY,
               PcieUceOverLimit, 0xF, 0, 0}}) {
        DpcMachine Machine;
        TestFunction& Port = Test.IsSwitchPort ? Machine.AddSwitch() : *Machine.RootPort;
        const UINT8 Bus = Test.IsSwitchPort ? DpcMachine::PORT_BUS : DpcMachine::RP_BUS;
        const UINT8 Dev = Test.IsSwitchPort ? 4 : 1;
        Port.Set(DPC + DPC_STATUS, 2, Test.Status);
        for (UINT32 Error = 0; Error < Test.Before; Error++) {
            IncrementPcieUceCount(0, Bus, Dev, 0);
        }
        if (Test.IsDpcOs) {
            Machine.TakeOver(Bus, Dev);
        }
        PCI_DEVICE_STATE State = Machine.CapturePort(Bus, Dev);
        State.ChipsetDataValid = TRUE;
        State.ChipsetData[27] = 0x5A;
        VornElogSmmCheckPcieErrorDpc(&State);
        QueueAdd(Policy.pQueuePciDeviceData, &State, sizeof(State));
        const std::uint64_t Blocks = Machine.Blocks();

        VornElogSmmHandlePcieDpcEvent(&State);

        EXPECT_EQ(Port.Peek(DPC + DPC_STATUS, 2) & 1, Test.IsReleased ? 0 : 1) << Test.About;
        EXPECT_TRUE(Machine.EntryIs(0, Test.Entry)) << Test.About;
        EXPECT_EQ(GetPcieUceLimitStatus(0, Bus, Dev, 0, FALSE), Test.After) << Test.About;
        EXPECT_EQ(Port.Peek(PCIE + PCIE_DEVICE_CONTROL, 2), Test.DeviceControl) << Test.About;
        EXPECT_EQ(State.Pcie.ErrorStatus.ClearFatal, Test.ClearFatal) << Test.About;
        EXPECT_EQ(State.Pcie.ErrorStatus.ClearNonFatal, Test.ClearNonFatal) << Test.About;
        ASSERT_EQ(Policy.pPciFiniteBuffer->Tail, 1u) << Test.About;
        const PCI_SUPPORT_DATA& Filed = FiledSupportData();
        EXPECT_EQ(Filed.DpcOsLoaded, Test.IsDpcOs ? 1 : 0) << Test.About;
        EXPECT_EQ(Filed.DpcEvent, 1) << Test.About;
        EXPECT_EQ(Filed.ChipsetDataValid, 1) << Test.About;
        EXPECT_EQ(Filed.ChipsetData[27], 0x5A) << Test.About;
        // The filed pair, and a counter where it is the port's first error; other OSes' records are counted for
        // storms.
        EXPECT_LE(Machine.Blocks(), Blocks + 5) << Test.About;
    }
}

TEST(DpcPostProcess, RpPioRegistersAreToldAsTheyWereCaptured) {
    const Bodies REGISTERS = {"C1 1A 7E 01 8C 01", "C1 1A 7E 01 8E 01", "C1 1A 7E 01 96 01",
                              "C1 1A 7E 01 99 01", "C1 1A 7E 01 A0 44", "C1 1A 7E 01 A4 0F"};
    struct Case {
        const char* About;
        unsigned Capability;
        std::uint16_t Status;
        UINT8 HandleRpPioFatal;
        bool IsSwitchPort;
        bool IsLogged;
    };
    // The log size counts bytes here: five of them reach into the second doubleword of the header log.
    for (const Case& Test : {Case{"triggering", 5 << 8 | 1 << 5, TRIGGERED | REASON_RP_PIO, 0, false, true},
                             Case{"signalled", 5 << 8 | 1 << 5, 0, 1, false, true},
                             Case{"another error", 5 << 8 | 1 << 5, TRIGGERED | REASON_FATAL, 0, false, false},
                             Case{"no RP extensions", 5 << 8, TRIGGERED | REASON_RP_PIO, 0, false, false},
                             Case{"switch port", 5 << 8 | 1 << 5, TRIGGERED | REASON_RP_PIO, 0, true, false}}) {
        DpcMachine Machine;
        TestFunction& Port = Test.IsSwitchPort ? Machine.AddSwitch() : *Machine.RootPort;
        Port.Set(DPC + DPC_CAPABILITY, 2, Test.Capability).Set(DPC + DPC_STATUS, 2, Test.Status);
        Port.Set(DPC + DPC_RP_PIO_STATUS, 4, 0x00010001).Set(DPC + DPC_RP_PIO_SEVERITY, 4, 0x00010000);
        Port.Set(DPC + DPC_RP_PIO_SYS_ERROR, 4, 0x00000100).SetHeaderLog({0x44, 0xFF00000F, 0x77, 0x88}, DPC + 0x20);
        PCI_DEVICE_STATE State = Test.IsSwitchPort ? Machine.CapturePort(DpcMachine::PORT_BUS, 4)
                                                   : Machine.CapturePort(DpcMachine::RP_BUS, 1);
        VornElogSmmCheckPcieErrorDpc(&State);
        State.Pcie.ErrorStatus.HandleRpPioFatal = Test.HandleRpPioFatal;
        TestRecord Record(gCperSectionPcieGuid, 0, 208);
        PCIE_ALREADY_LOGGED AlreadyLogged{};
        const PCI_SLOT_NUMBER_DATA Slot{};
        PCIE_SEL_DATA SelData{};
        EFI_STATUS SelStatus = EFI_NOT_FOUND;
        BOOLEAN IsRequired = FALSE;
        Machine.Forget();
        const auto Log = [&] {
            VornElogSmmPostProcessErrorRecordPcieDpcRpPio(Record.Cper(), &Record.Data, &State, &SelData, &Slot,
                                                          &SelStatus, &AlreadyLogged, &IsRequired);
        };
        Log();
        EXPECT_THAT(Machine.Sel(), ElementsAreArray(Test.IsLogged ? Join({CHIPSET, REGISTERS, IDS, ROOT}) : Bodies{}))
            << Test.About;
        EXPECT_EQ(SelStatus, Test.IsLogged ? EFI_SUCCESS : EFI_NOT_FOUND) << Test.About;
        Machine.Forget();
        Log();
        EXPECT_THAT(Machine.Sel(), ElementsAreArray(Test.IsLogged ? Join({CHIPSET, REGISTERS}) : Bodies{}))
            << Test.About;
        EXPECT_EQ(IsRequired, FALSE);
    }
}

}  // namespace
