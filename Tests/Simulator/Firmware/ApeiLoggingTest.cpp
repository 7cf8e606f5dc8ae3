// Who owns the error status block, and how the operating system comes to read it.
#include "Simulator/Firmware/ApeiLogging.h"

#include <gtest/gtest.h>

#include <cstring>

#include "Include/Cper.h"
#include "Platform/Constants.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/ServiceTables.h"
#include "Tests/Support/BootedSimulation.h"

namespace Simulator {
namespace {

class ApeiLoggingTest : public ::testing::Test {
 protected:
    void Start(bool Loaded, bool Acknowledges) {
        Configuration Settings;
        Settings.ApeiOsLoaded = Loaded;
        Settings.ApeiOsAcknowledges = Acknowledges;
        Run = std::make_unique<Simulation>(Settings);
        Apei = ApeiLoggingTable();
        std::memcpy(Cper.Header.SignatureStart, "CPER", 4);
        Cper.Header.RecordLength = sizeof(Cper);
        Cper.Descriptor.SectionOffset = sizeof(Cper);
    }
    void RouteSci() {
        MmioWrite32(FCH_SMI_SOFTWARE_SCI_EN, 1 << 22);
    }
    EFI_STATUS Log() {
        return Apei->ElogLogCper(Apei, &Cper, CperSeverityCorrected);
    }
    EFI_STATUS Clear() {
        return Apei->ElogClearGhes(Apei);
    }
    std::unique_ptr<Simulation> Run;
    VORN_APEI_LOGGING_SMM_PROTOCOL* Apei = nullptr;
    CPER_RECORD Cper{};
};

TEST_F(ApeiLoggingTest, FirmwareClearsWhatNobodyRead) {
    Start(false, true);
    RouteSci();
    EXPECT_EQ(Clear(), EFI_NOT_READY) << "nothing to clear";
    EXPECT_EQ(Log(), EFI_SUCCESS);
    EXPECT_EQ(Log(), EFI_SUCCESS);
    Apei->ElogSignalSci(Apei, 0x20000000);
    Run->RaiseSmi("machine-check");  // its end lets the OS run
    EXPECT_EQ(Run->GhesStatusBlock().size(), 20u + 2 * 72);
    EXPECT_EQ(Clear(), EFI_SUCCESS);
    EXPECT_TRUE(Run->GhesStatusBlock().empty());
    EXPECT_EQ(Run->LoggedRecords().size(), 2u);
}

TEST_F(ApeiLoggingTest, WhileTheOsReadsTheBlockIsNotFirmwares) {
    Start(true, false);
    Log();
    Apei->ElogSignalNmi(Apei);
    Run->RaiseSmi("machine-check");
    EXPECT_EQ(Clear(), EFI_NOT_READY);
    EXPECT_EQ(Log(), EFI_ALREADY_STARTED);
    EXPECT_EQ(Run->LoggedRecords().size(), 1u);
}

TEST_F(ApeiLoggingTest, AnSciThatTheFchDoesNotRouteReachesNobody) {
    Start(true, true);
    Log();
    Apei->ElogSignalSci(Apei, 0x20000000);
    Run->RaiseSmi("machine-check");
    EXPECT_EQ(MmioRead32(FCH_SMI_SOFTWARE_SCI_DATA), 1u << 22);
    EXPECT_EQ(Clear(), EFI_SUCCESS) << "nobody has read it";
}

}  // namespace
}  // namespace Simulator
