// What a run says about expectations that are not met.
#include "Simulator/Scenario/Runner.h"

#include <gtest/gtest.h>

namespace {

using Simulator::ParseScenario;
using Simulator::RunResult;
using Simulator::RunScenario;

constexpr char Machine[] = R"(name: runner
about: One uncorrected error of processor 1
steps:
  - machine-check: {processor: 1, bank: 5, status: 0xbea0000000000108}
  - os-read-msr: {processor: 1, msr: 0xC0002051, value: VALUE}
  - smi: machine-check
)";

RunResult RunWith(const std::string& Expectations, const std::string& Value = "0") {
    std::string Text = Machine;
    Text.replace(Text.find("VALUE"), 5, Value);
    return RunScenario(ParseScenario(Text + Expectations, "r.yaml"));
}

TEST(Runner, MissedExpectationsSayWhereAndWhatCameClosest) {
    struct Row {
        const char* Expectations;
        const char* Where;
        const char* What;
        const char* Nearest;
    };
    const Row Rows[] = {
        {"expect:\n  - sel: {bytes: 07 0D 07 A6 02 01}\n", "r.yaml:8:5", "no event matches",
         "bytes is 07 0D 07 A6 01 01, wanted 07 0D 07 A6 02 01"},
        {"expect:\n  - mce: {}\n  - smi-enter: {}\n", "r.yaml:9:5", "after the one before it", "came too early"},
        {"expect:\n  - nmi: {}\n", "r.yaml:8:5", "expected nmi: {}", "no nmi event came at all"},
        {"expect:\n  - ghes-log: {record-bytes: {12: 02}}\n", "r.yaml:8:5", "no event matches",
         "bytes from 12 are 01, wanted 02"},
        {"never:\n  - mce: {processor: 1}\n", "r.yaml:8:5", "must never come", "mce (step 2"},
        {"count: {mce: 2}\n", "r.yaml:7:9", "must come 2 times, but it came 1 times", ""},
        {"kept: 1\n", "r.yaml", "leave 0 pool blocks allocated, wanted 1", ""},
        {"entry: EFI_NOT_FOUND\n", "r.yaml", "returned EFI_SUCCESS, wanted EFI_NOT_FOUND", ""},
    };
    for (const Row& Case : Rows) {
        SCOPED_TRACE(Case.Expectations);
        const RunResult Result = RunWith(Case.Expectations);
        ASSERT_EQ(Result.Misses.size(), 1u);
        const Simulator::Miss& One = Result.Misses.front();
        EXPECT_EQ(One.Where.Text(), Case.Where);
        EXPECT_NE(One.What.find(Case.What), std::string::npos) << One.What;
        const std::string Nearest = One.Nearest.empty() ? "" : One.Nearest.front();
        EXPECT_NE(Nearest.find(Case.Nearest), std::string::npos) << Nearest;
    }
    const RunResult Read = RunWith("", "7");
    ASSERT_EQ(Read.Misses.size(), 1u);
    EXPECT_EQ(Read.Misses.front().What, "os-read-msr (processor 1 MSR 0xC0002051): the OS reads 0x0, wanted 0x7");
}

TEST(Runner, WhatTheMachineCannotDoIsAMistakeOfTheScenario) {
    // Each text stands behind "name: x\nabout: y\n", so its first line is line 3.
    const std::pair<const char*, const char*> Rows[] = {
        {"steps:\n  - smi: telephone", "r.yaml:4:5: \"telephone\" is no SMI"},
        {"steps:\n  - pcie-error: {at: nic0, error: rp-pio-io-ur}",
         "r.yaml:4:5: \"nic0\" has no registers for rp-pio"},
        {"steps:\n  - pcie-slot: {at: port0, act: power-off}", "r.yaml:4:5: \"port0\" has no slot with a power"},
        {"steps:\n  - os-dsm: {port: nic0}", "r.yaml:4:5: \"nic0\" is no root port"},
        {"steps:\n  - repeat: {times: 2, steps: [wait: 876000h]}", "r.yaml:4:5: no machine runs longer"},
        {"machine: {silent-processors: [16]}", "r.yaml:3:10: silent processor 16 does not exist; the machine has 16"},
        {"machine: {apei: {PFEHEnable: 256}}", "r.yaml:3:10: PFEHEnable is 1 bytes wide"},
        {"machine: {pcie: {ports: [{name: a}, {name: a}]}}", "r.yaml:3:10: two functions are called \"a\""},
        {"machine: {pcie: {ports: [{below: [{name: e, slot: {}}]}]}}", "r.yaml:3:10: \"e\" is no root port"},
        {"machine: {pcie: {ports: [{name: p, bars: [{index: 2, size: 4096}]}]}}",
         "r.yaml:3:10: \"p\", base address register 2: the function has 2 of them"},
        {"machine: {pcie: {ports: [{below: [{name: e, bars: [{index: 0, size: 0x20000000}]}]}]}}",
         "r.yaml:3:10: \"e\": its root complex has no room left"},
        {"machine: {pcie: {ports: [{below: [{cxl: {component-registers: [{offset: 0x10000, value: 1}]}}]}]}}",
         "r.yaml:3:10: a CXL register block of 65536 bytes has no register at 0x10000"},
    };
    for (const auto& [Text, Says] : Rows) {
        SCOPED_TRACE(Text);
        try {
            RunScenario(ParseScenario(std::string("name: x\nabout: y\n") + Text, "r.yaml"));
            ADD_FAILURE() << "was taken";
        } catch (const Simulator::ScenarioError& Error) {
            EXPECT_TRUE(std::string_view(Error.what()).starts_with(Says)) << Error.what();
        }
    }
}

TEST(Runner, ACapabilityAtTheEndOfTheSpaceHasNoRegistersBehindIt) {
    // Vendor-specific at 0x100, then AER at 0xFFC: its status registers would lie beyond.
    const RunResult Result = RunScenario(
        ParseScenario("name: x\nabout: y\n"
                      "machine: {pcie: {ports: [{below: [{name: e, registers: [{offset: 0x100, value: 0xFFC1000B},"
                      " {offset: 0xFFC, value: 0x00010001}]}]}]}}\n"
                      "steps:\n"
                      "  - pcie-error: {at: e, error: [ecrc, bad-tlp]}\n"
                      "  - pcie-config: {at: e, offset: 0, width: 32, write: 0, expect: 0x00211D9B}\n"
                      "  - smi: {kind: root-complex, spurious: true}\n"
                      "kept: 2\n",
                      "r.yaml"));
    EXPECT_TRUE(Result.Passed()) << Result.Misses.front().What;
}

TEST(Runner, ConfigurationIsComparedAsHeldAndAsRead) {
    const RunResult Result =
        RunScenario(ParseScenario("name: x\nabout: y\n"
                                  "steps:\n"
                                  "  - pcie-config: {at: nic0, offset: 0, width: 32, peek: 0x00211D9B, expect: 5}\n",
                                  "r.yaml"));
    ASSERT_EQ(Result.Misses.size(), 1u);
    EXPECT_EQ(Result.Misses.front().What, "pcie-config (0 of nic0): it is 0x211D9B, wanted 0x5");
}

}  // namespace
