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
    try {
        RunScenario(ParseScenario("name: x\nabout: y\nsteps:\n  - smi: telephone\n", "r.yaml"));
        ADD_FAILURE() << "was taken";
    } catch (const Simulator::ScenarioError& Error) {
        EXPECT_TRUE(std::string_view(Error.what()).starts_with("r.yaml:4:5: \"telephone\" is no SMI"))
            << Error.what();
    }
}

}  // namespace
