#include "PlatformRas/Qtz/Smm/CxlOsc.h"

#include <gtest/gtest.h>

#include "Include/PlatformApeiData.h"
#include "Library/RasLib/Globals.h"
#include "Simulator/Simulation.h"

namespace {

class CxlOsc : public testing::Test {
 protected:
    CxlOsc() {
        Simulator::Configuration Settings;
        Settings.TraceLevels = 0;
        Sim = std::make_unique<Simulator::Simulation>(Settings);
        Sim->Boot();
    }
    UINT32 Negotiate(UINT32 Support, UINT32 Control) {
        CXL_POLICY_DATA& Policy = *mPlatformApeiData->CxlPolicyData;
        Policy.OscDword4 = Support;
        Policy.OscDword5 = Control;
        EXPECT_EQ(KyrCxlOscCallback(nullptr, nullptr, nullptr, nullptr), EFI_SUCCESS);
        EXPECT_EQ(Policy.OscDword4, Support);
        return Policy.OscDword5;
    }
    void Set(UINT8 Mode, UINT8 AllHaveSecondary, UINT8 Isolation) {
        mPlatformApeiData->CxlErrorHandlingMode = Mode;
        mPlatformApeiData->CxlAllDevicesHaveSecondaryMailbox = AllHaveSecondary;
        mPlatformApeiData->CxlIsolationEnable = Isolation;
    }

    std::unique_ptr<Simulator::Simulation> Sim;
};

// Every combination of support and control bits: what is granted was asked for, what may not be had is clear.
TEST_F(CxlOsc, EveryCombinationKeepsTheRules) {
    for (UINT32 Settings = 0; Settings < 16; Settings++) {
        const UINT8 Mode = Settings & 3;
        const bool AllHaveSecondary = (Settings & 4) != 0;
        const bool Isolation = (Settings & 8) != 0;
        Set(Mode, AllHaveSecondary, Isolation);
        const bool FirmwareOwns = Mode == 2 || (Mode == 1 && AllHaveSecondary);
        for (UINT32 Support = 0; Support < 32; Support++) {
            UINT32 Grantable = 0;
            Grantable |= (Support & 0x01) != 0 && !FirmwareOwns ? 0x01 : 0;
            Grantable |= (Support & 0x10) != 0 && Isolation ? 0x22 : 0;
            for (UINT32 Control = 0; Control < 64; Control++) {
                ASSERT_EQ(Negotiate(Support, Control), Control & Grantable)
                    << Settings << " " << Support << " " << Control;
            }
        }
    }
    EXPECT_EQ(Negotiate(0x1F, 0xFFFFFFC0), 0xFFFFFFC0) << "what has no meaning yet stays";
}

}  // namespace
