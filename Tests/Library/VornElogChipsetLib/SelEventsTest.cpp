#include <functional>

#include "Library/VornElogChipsetLib/SelMachineCheck.h"
#include "Library/VornElogChipsetLib/SelMemory.h"
#include "Library/VornElogChipsetLib/SelPcie.h"
#include "Library/VornElogChipsetLib/SelRegisters.h"
#include "Tests/Library/VornElogChipsetLib/EventLogFixture.h"

namespace {

PCI_SLOT_NUMBER_DATA Slot(UINT32 Number) {
    PCI_SLOT_NUMBER_DATA Data{};
    Data.Valid = TRUE;
    Data.DeviceType = PciSlotDeviceOther;
    Data.SlotNumber = Number;
    return Data;
}

PCI_SLOT_NUMBER_DATA Drive(UINT8 BayId, UINT8 SlotId) {
    PCI_SLOT_NUMBER_DATA Data{};
    Data.Valid = TRUE;
    Data.DeviceType = PciSlotDeviceNvmeDrive;
    Data.Drive.BayId = BayId;
    Data.Drive.SlotId = SlotId;
    return Data;
}

TEST_F(VornElogChipset, BodiesOfEveryBuilder) {
    ASSERT_EQ(EFI_SUCCESS, VornELogIpmiLibConstructor(nullptr, nullptr));
    const PCI_SLOT_NUMBER_DATA Slot0x107 = Slot(0x107);
    const PCI_SLOT_NUMBER_DATA Bay3Slot9 = Drive(3, 9);
    const IO_HUB_DATA Hub{1, 1, 2, 3, 0x77, 0xF4, 5, 6, 7, 0x18, 0xC0};
    const IO_HUB_DATA ZeroHub{1, 1, 0, 0, 0x77, 0, 0, 0, 0, 1, 0xC0};
    CPU_INFO Cpu{};
    Cpu.LocalApicId = 0x1A3;
    Cpu.SocketId = 1, Cpu.CcxId = 2, Cpu.DieId = 3, Cpu.CoreId = 4, Cpu.ThreadId = 5;
    struct {
        const char* Name;
        std::function<void()> Log;
        Bodies Expected;
    } Cases[] = {
        {"thread",
         [&] { VornElogLogCpuThreadLocationData(&Cpu); },
         {"C1 28 7E A3 01 00", "C1 28 7E 00 00 00", "C1 28 7E 00 05 04", "C1 28 7E 03 02 01"}},
        {"memory 19", [] { ElogLogMemoryEvent(19, 0x34, 2, 3); }, {"D4 13 74 34 02 03"}},
        {"corrected ECC", [] { ElogLogMemoryCorrectedEccError(1, 11, 0); }, {"D5 14 74 3E F7 4B"}},
        {"register", [] { ElogLogRegisterInfo(0x104, 0x00FF0000); }, {"C1 1A 7E 01 06 FF"}},
        {"register, all bytes",
         [] { ElogLogRegisterInfo(0x0FE, 0x44332211); },
         {"C1 1A 7E 00 FE 11", "C1 1A 7E 00 FF 22", "C1 1A 7E 01 00 33", "C1 1A 7E 01 01 44"}},
        {"SERR", [] { ElogLogPciSerr(3, 0xC1, 0x1F, 7); }, {"13 05 6F A5 FF C1"}},
        {"chipset register",
         [] { ElogLogMmioChipsetInfo(0x44332211, 0x88776655); },
         {"C1 49 7E 11 22 33", "C1 49 7E 44 55 66", "C1 49 7E 77 88 00"}},
        {"error info", [] { ElogLogErrorInfo(5, 0x42); }, {"C1 2E 72 A2 05 42"}},
        {"CXL RAS, high half",
         [] { ElogLogCxlRasCapabilityStructure(0x10, 0x12340000); },
         {"C1 57 7E 10 00 00", "C1 57 7E 12 34 12"}},
        // Segment 0x13 keeps its low 4 bits; the class stands in bits 3:2, the severity in bits 1:0.
        {"PCIe slot",
         [&] { ElogLogPcieOrCxlAnyEvent(0x13, 0xC1, 2, 1, SelSeverityFatal, 0, &Slot0x107); },
         {"DE 16 74 33 07 01", "DE 16 74 37 11 C1"}},
        {"PCIe SSD",
         [&] { ElogLogPcieOrCxlAnyEvent(3, 0xC1, 2, 1, SelSeverityDpc, 2, &Bay3Slot9); },
         {"DE 16 74 38 09 03", "DE 16 74 34 11 C1"}},
        {"CXL SBDF",
         [&] { ElogLogPcieOrCxlAnyEvent(3, 0xC1, 2, 1, SelSeverityFatal, 4, &Slot0x107); },
         {"DF 1D 74 37 11 C1"}},
        {"CXL CMM",
         [&] { ElogLogPcieOrCxlAnyEvent(3, 0xC1, 2, 1, SelSeverityNone, 5, &Bay3Slot9); },
         {"DF 1D 74 3B 09 03", "DF 1D 74 37 11 C1"}},
        {"no such class", [&] { ElogLogPcieOrCxlAnyEvent(3, 0xC1, 2, 1, SelSeverityFatal, 6, &Slot0x107); }, {}},
        {"no slot data", [] { ElogLogPcieOrCxlAnyEvent(3, 0xC1, 2, 1, SelSeverityFatal, 1, nullptr); }, {}},
        {"chipset", [] { ElogLogChipsetAnyEvent(0x13, 0xC1, 2, 1, SelChipsetSeverityFatal); }, {"DD 17 74 32 11 C1"}},
        // A | segment 8 | bus C0 | socket 1, die 2, root bridge 3; hub 4 5 6 7, logical 2.1, physical 1F.7
        {"root port",
         [&] { VornElogLogPcieRootPortData(&Hub, 0x8C011000, 0x8C0FF000); },
         {"C1 49 7E 63 00 C0", "C1 49 7E A8 FF 11", "C1 49 7E 67 45 00"}},
        {"root port, zero", [&] { VornElogLogPcieRootPortData(&ZeroHub, 0x1C000000, 0x1C000000); }, {}},
    };
    for (const auto& Case : Cases) {
        Case.Log();
        EXPECT_EQ(Case.Expected, Take()) << Case.Name;
    }
}

TEST_F(VornElogChipset, MemoryEventsAnnounceTheRepair) {
    ASSERT_EQ(EFI_SUCCESS, VornELogIpmiLibConstructor(nullptr, nullptr));
    struct {
        UINT32 ApplyPprType;
        std::string Critical, Half, Eighth, Detection, Consumption;
    } Cases[] = {
        {ApplyPprTypeNone, "D4 13 74 30 13 4B", "D4 13 74 30 14 4B", "D4 13 74 30 61 4B", "D5 14 74 44 F1 4B",
         "D6 15 74 4E F2 4B"},
        {ApplyPprTypeHard, "D4 13 74 30 43 4B", "D4 13 74 34 44 4B", "D4 13 74 30 61 4B", "D5 14 74 44 41 4B",
         "D6 15 74 4E 42 4B"},
        {ApplyPprTypeSoft, "D4 13 74 30 53 4B", "D4 13 74 34 54 4B", "D4 13 74 30 61 4B", "D5 14 74 44 51 4B",
         "D6 15 74 4E 52 4B"},
    };
    for (const auto& Case : Cases) {
        mPrivateDataVornElogIpmi.ApplyPprType = Case.ApplyPprType;
        for (const UINT8 Threshold : {1, 2, 7, 4, 0, 3}) {
            ElogLogMemoryThresholdError(1, 11, 0, Threshold);
        }
        ElogLogMemoryUncorrectedEccErrorPoisonDetection(1, 11, 0);
        ElogLogMemoryUncorrectedEccErrorPoisonConsumption(1, 11, 0);
        EXPECT_EQ((Bodies{Case.Critical, Case.Half, Case.Half, Case.Eighth, Case.Detection, Case.Consumption}),
                  Take())
            << Case.ApplyPprType;
    }
}

TEST_F(VornElogChipset, ARepeatIsTakenForOneOnlyWhenTheApicIdEqualsTheSocketsBit) {
    ElogLogMachineCheckError(1, 7, FALSE);
    ElogLogMachineCheckError(1, 7, FALSE);  // the same processor again, and sent again
    ElogLogMachineCheckError(1, 2, FALSE);  // another processor, but its ID is the socket's bit
    ElogLogMachineCheckError(0, 2, FALSE);
    ElogLogMachineCheckError(0, 1, TRUE);
    ElogLogMachineCheckError(1, 2, TRUE);
    ElogLogMachineCheckError(1, 2, 2);  // neither corrected nor uncorrected is never a repeat
    EXPECT_EQ((Bodies{"07 0D 07 A6 02 07", "07 0D 07 A6 02 07", "07 0D 07 A6 01 02", "07 3C 6F AC 02 02",
                      "07 3C 6F AC 02 02"}),
              Take());
}

}  // namespace
