// The driver on machines built from dumps of real ones: an error at every function of each.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Simulator/Machine/Machine.h"
#include "Simulator/Machine/PciDump.h"
#include "Simulator/Simulation.h"
#include "Tests/Support/BootedSimulation.h"

namespace {

namespace fs = std::filesystem;
using namespace Simulator;

// What the driver reports may differ from machine to machine; that it reads them through, keeps nothing of the SMI
// but what storms are counted by, and silences the root complex may not.
TEST(RealMachines, EveryErrorAtEveryFunctionEndsWithItsSmi) {
    const char* Folder = std::getenv("RAS_DUMPS");
    if (Folder == nullptr) {
        GTEST_SKIP() << "RAS_DUMPS names no folder of dumps";
    }
    unsigned Smis = 0;
    for (const fs::directory_entry& File : fs::directory_iterator(Folder)) {
        std::ifstream In(File.path());
        std::ostringstream Text;
        Text << In.rdbuf();
        for (const DumpedFunction& One : ReadPciDump(Text.str())) {
            Configuration Settings = DiagnosticConfiguration();
            Settings.Pcie.Dump = PciDumpSetting{Text.str(), true};
            BootedSimulation Run(Settings);
            ASSERT_EQ(Run.EntryStatus(), EFI_SUCCESS);
            for (const PcieErrorName& Error : PcieErrorNames()) {
                SCOPED_TRACE(testing::Message() << File.path().filename().string() << " " << PciAddressText(One.Where)
                                                << " " << Error.Name);
                PcieFabric& Fabric = Run->Machine().Pcie();
                PcieFunction* Function = Fabric.Find(One.Where);
                ASSERT_NE(Function, nullptr);
                Fabric.Inject(*Function, {Error.From, Error.Bit});
                if (!Run->IsRootComplexSmiPending()) {
                    continue;
                }
                Smis++;
                EXPECT_NO_THROW(Run->RaiseSmi("root-complex"));
                EXPECT_FALSE(Run->IsRootComplexSmiPending());
                Run->Wait(60'000'000);
            }
        }
    }
    EXPECT_GT(Smis, 0u);
}

}  // namespace
