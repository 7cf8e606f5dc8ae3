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

constexpr std::uint64_t CORRECTED = 0x9C20400000000135;
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
    void Inject(unsigned Number, std::uint64_t Status, unsigned Processor = 0) {
        MachineCheck Error;
        Error.Processor = Processor;
        Error.Bank = Number;
        Error.Status = Status;
        Error.Addr = 0x1000;
        Run->InjectMachineCheck(Error);
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

TEST_F(RasServiceTest, ProgramsThresholdsOfTheBankMeant) {
    Start();
    const UINTN Processor = 1, Number = UMC_BANK;
    for (int Error = 0; Error < 10; Error++) {
        Inject(UMC_BANK, CORRECTED, 1);
    }
    EXPECT_EQ(Bank(UMC_BANK, MCA_MISC0, 1), Misc(FIRST_OF_TWO, 1, 0xFFF, 2) | 1ULL << 48);
    RasThresholdConfig Config{};
    Config.McaMisc0DataValid = 1;
    Config.ThresholdControl = 1;
    Config.ThresholdCount = 0xABC;
    Config.ThresholdIntType = 2;
    Config.McaMisc1ThresholdCount = 0x111;  // not marked valid
    EXPECT_EQ(Ras->SetMcaThreshold(&Processor, &Number, &Config, TRUE), EFI_SUCCESS);
    EXPECT_EQ(Bank(UMC_BANK, MCA_MISC0, 1), Misc(FIRST_OF_TWO, 1, 0xABC, 2)) << "the overflow is cleared";
    EXPECT_EQ(Bank(UMC_BANK, MCA_MISC1, 1), Misc(COUNTER, 1, 0xFF5, 2));
    EXPECT_EQ(Bank(UMC_BANK + 1, MCA_MISC0, 1), Misc(FIRST_OF_TWO, 1, 0xFF5, 2));
    Config = {};
    Config.McaMisc1DataValid = 1;
    Config.McaConfigDataValid = 1;
    EXPECT_EQ(Ras->SetMcaThreshold(&Processor, &Number, &Config, FALSE), EFI_SUCCESS);
    EXPECT_EQ(Bank(UMC_BANK + 1, MCA_MISC1, 1), COUNTER) << "all banks of the processor";
    EXPECT_EQ(Bank(UMC_BANK + 1, MCA_CONFIG, 1), 0x0000000700000027u);
    EXPECT_EQ(Bank(0, MCA_MISC1, 1), 0u) << "a bank without a second counter";
    EXPECT_EQ(Bank(UMC_BANK + 1, MCA_MISC1, 2), Misc(COUNTER, 1, 0xFF5, 2));
    EXPECT_EQ(Ras->SetMcaThreshold(nullptr, nullptr, &Config, TRUE), EFI_INVALID_PARAMETER);
}

}  // namespace
}  // namespace Simulator
