// The silicon maker's RAS service through its protocol table.
#include "Simulator/Firmware/RasService.h"

#include <gtest/gtest.h>

#include <memory>

#include "Platform/Protocol/RasService.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/ServiceTables.h"
#include "Simulator/Simulation.h"

namespace Simulator {
namespace {

constexpr std::uint32_t UMC_BANK = 15;  // the first memory controller's

std::uint64_t Misc(std::uint64_t Kept, unsigned Enabled, unsigned Count, unsigned Interrupt) {
    return Kept | std::uint64_t{Enabled} << 51 | std::uint64_t{Interrupt} << 49 | std::uint64_t{Count} << 32;
}
constexpr std::uint64_t COUNTER = 0xD000000000000000;  // Valid CntP IntP
constexpr std::uint64_t FIRST_OF_TWO = COUNTER | 1 << 24;

class RasServiceTest : public ::testing::Test {
 protected:
    void Start(Configuration Settings = {}) {
        Run = std::make_unique<Simulation>(std::move(Settings));
        Ras = RasServiceTable();
    }
    std::uint64_t Bank(unsigned Number, std::uint32_t Register, unsigned Processor = 0) {
        return Run->ReadMsrRaw(Processor, McaMsr(Number, Register));
    }
    std::unique_ptr<Simulation> Run;
    KYR_RAS_SERVICE_SMM_PROTOCOL* Ras = nullptr;
};

TEST_F(RasServiceTest, BootProgramsThresholdsFromTheApeiData) {
    const struct {
        std::map<std::string, std::uint64_t> Apei;
        std::uint64_t Misc0, Misc1, Config, Cloak;
    } Cases[] = {
        {{}, Misc(FIRST_OF_TWO, 1, 0xFF5, 2), Misc(COUNTER, 1, 0xFF5, 2), 0x0000004700000027, 0xFFFFFFFF},
        {{{"McaErrThreshEn", 0}, {"McaErrThreshCount", 0x123}},
         Misc(FIRST_OF_TWO, 0, 0x123, 0),
         Misc(COUNTER, 0, 0x123, 0),
         0x0000004700000027,
         0xFFFFFFFF},
        {{{"PFEHEnable", 0}}, FIRST_OF_TWO, COUNTER, 0x0000000100000027, 0},
    };
    for (const auto& Case : Cases) {
        Run.reset();
        Configuration Settings;
        Settings.Apei = Case.Apei;
        Start(Settings);
        EXPECT_EQ(Bank(UMC_BANK, MCA_MISC0, 9), Case.Misc0);
        EXPECT_EQ(Bank(UMC_BANK, MCA_MISC1, 9), Case.Misc1);
        EXPECT_EQ(Bank(UMC_BANK, MCA_CONFIG, 9), Case.Config);
        EXPECT_EQ(Run->ReadMsrRaw(9, 0xC0010121), Case.Cloak);
    }
}

}  // namespace
}  // namespace Simulator
