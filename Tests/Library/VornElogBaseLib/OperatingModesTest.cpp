#include "Library/VornElogBaseLib/OperatingModes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Simulator/Simulation.h"

namespace {

TEST(OperatingModes, FollowFromManufacturingModeAndSetup) {
    const struct {
        unsigned Manufacturing;
        const char* Threshold;  // nullptr: the attribute does not exist
        const char* Missing;
        RAS_ERROR_LOGGING_MODE Mode;
        const char* Line;
    } Cases[] = {
        {0, "Enabled", nullptr, RasProductionMode, nullptr},
        {0, "disabled", nullptr, RasProductionMode, nullptr},
        {0, nullptr, nullptr, RasProductionMode, "ERROR Not Found retrieving NVRAM attribute value"},
        {0, "Disabled", nullptr, RasDiagnosticMode, "Memory CECC diagnostic mode detected"},
        {0, "Disabled", "gVornAttributeSmmProtocolGuid", RasProductionMode, "default to RasMemEccThresholdMode"},
        {1, nullptr, nullptr, RasDiagnosticMode, "Manufacturing mode detected"},
        {2, "Enabled", nullptr, RasDiagnosticMode, "Manufacturing mode detected"},
        {3, "Enabled", nullptr, RasProductionMode, "ERROR MfgModeType 3 unrecognized, default to mfg mode disabled"},
        {1, "Enabled", "gVornManufacturingModeProtocolGuid", RasProductionMode,
         "locating protocol gVornManufacturingModeProtocolGuid"},
    };
    for (const auto& Case : Cases) {
        Simulator::Configuration Settings;
        Settings.ManufacturingMode = Case.Manufacturing;
        if (Case.Threshold != nullptr) {
            Settings.Attributes["CorErrLoggingThreshold"] = Case.Threshold;
        }
        if (Case.Missing != nullptr) {
            Settings.Missing = {Case.Missing};
        }
        Simulator::Simulation Machine(Settings);
        ASSERT_EQ(Machine.Boot(), EFI_SUCCESS);
        EXPECT_EQ(VornGetRasErrorLoggingMode(DEBUG_INFO), Case.Mode) << Case.Manufacturing;
        if (Case.Line != nullptr) {
            EXPECT_THAT(Machine.TraceLog(), testing::HasSubstr(Case.Line));
        }
    }
}

}  // namespace
