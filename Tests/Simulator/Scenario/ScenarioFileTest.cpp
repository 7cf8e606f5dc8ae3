// Scenario files: what they become, and what is said about mistakes in them.
#include <gtest/gtest.h>

#include "Simulator/Scenario/PlainText.h"
#include "Simulator/Scenario/Scenario.h"

namespace {

using Simulator::ParseScenario;
using Simulator::Scenario;
using Simulator::ScenarioError;

TEST(ScenarioFile, MistakesSayWhereTheyAreAndWhatWouldBeRight) {
    // Each text stands behind "name: x\nabout: y\n", so its first line is line 3.
    struct Row {
        const char* Text;
        const char* Says;
    };
    const Row Rows[] = {
        {"mashine: {}", "t.yaml:3:1: unknown key \"mashine\"; known here: name, about, machine"},
        {"name: z", "t.yaml:3:1: \"name\" stands here a second time"},
        {"machine: {sockets: 3}", "t.yaml:3:20: 3 is out of range; 1 to 2 is right here"},
        {"machine: {failing: {SetMcaCloak: EFI_ABORTED}}",
         "t.yaml:3:21: unknown key \"SetMcaCloak\"; is SetMcaCloakCfg meant?"},
        {"machine: {oem-threshold-map: [{type: 0}]}", "t.yaml:3:31: the key \"hardware-id\" is missing"},
        {"steps:\n  - smi: machine-check\n  - sleep: 1s",
         "t.yaml:5:5: unknown key \"sleep\"; known here: machine-check"},
        {"steps:\n  - wait: 10", "t.yaml:4:11: \"10\" is no duration; write numbers with h, m, s, ms or us"},
        {"steps:\n  - {wait: 1s, smi: machine-check}", "t.yaml:4:5: one key with its value is needed here"},
        {"steps:\n  - machine-check: {processor: 16, bank: 0, status: 1}",
         "t.yaml:4:32: 16 is out of range; 0 to 15 is right here"},
        {"machine: {banks: 8}\nsteps:\n  - machine-check: {processor: 0, bank: 8, status: 1}",
         "t.yaml:5:41: 8 is out of range; 0 to 7 is right here"},
        {"steps:\n  - machine-check: {processor: 0, bank: 0}", "t.yaml:4:20: the key \"status\" is missing"},
        {"steps:\n  - comm: {handler: gElogLogPOSTErrorToBMCGuid, place: moon}",
         "t.yaml:4:56: \"moon\" is not known here; right would be region, outside, smram, straddling, null"},
        {"expect:\n  - sell: {}", "t.yaml:4:5: unknown key \"sell\"; is sel meant?"},
        {"expect:\n  - sel: {byte: 07}", "t.yaml:4:11: unknown key \"byte\"; known here: bytes, id"},
        {"expect:\n  - ghes-log: {record-bytes: {200: 07 ** 01}}", "t.yaml:4:36: \"07 ** 01\" are no bytes"},
        {"count: [{events: {sel: {}}}]", "t.yaml:3:9: the key \"times\" is missing"},
        {"never: [sci: {}\n", "t.yaml:4:1: no YAML: "},
        {"steps: \x9F", "t.yaml:1:1: no UTF-8 text"},
        // Aliases without an end, in steps, in an expectation, in a hierarchy; one that multiplies.
        {"steps: &s [repeat: {times: 1, steps: *s}]", "t.yaml:3:21: there is no end to the values"},
        {"expect: [ghes-log: {record: &a {b: *a}}]", "t.yaml:3:33: there is no end to the values"},
        {"steps:\n  - wait: 876001h", "t.yaml:4:11: 876001h is too long; 876000h is the longest"},
        {"steps:\n  - pcie-config: {at: a, offset: 0xFFE, width: 32, write: 0}",
         "t.yaml:4:18: a configuration register of more than 8 bits lies at a multiple"},
        {"steps:\n  - pcie-config: {at: a, offset: 4, width: 24, peek: 0}",
         "t.yaml:4:44: a configuration register is 8, 16 or 32 bits wide"},
        {"steps:\n  - pcie-config: {at: a, offset: 4}", "t.yaml:4:18: one of write, poke, set"},
        {"steps:\n  - pcie-error: {at: a, error: ecrc, header: [1, 2, 3, 4], tlp: {type: message}}",
         "t.yaml:4:17: the failing TLP is told either by header or by tlp"},
        {"steps:\n  - cxl-error: {at: a, correctable: mem-data-ecc, uncorrectable: mem-data-ecc}",
         "t.yaml:4:66: an error is either correctable or uncorrectable"},
        {"steps:\n  - cxl-event: {at: a, severity: fatal, flags: 7}", "t.yaml:4:48: the lowest two bits"},
        {"steps:\n  - memory-error: {socket: 0, channel: 0, dimm: 1, chip-select: 0}",
         "t.yaml:4:19: a rank is told either by dimm and rank or by chip-select"},
        {"steps:\n  - pin-translation: {socket: 0, channel: 0, normalized: 0, system: 0}",
         "t.yaml:4:22: a translation is pinned to a system address and a place"},
        {"never:\n  - service: {membr: SetMcaCloakCfg}", "t.yaml:4:15: unknown key \"membr\"; is member meant?"},
        {"never:\n  - service: {member: SetMcaCloak}", "t.yaml:4:23: unknown key \"SetMcaCloak\"; is SetMca"},
        {"machine: {failing: {LocateProtocol: EFI_SUCCESS}}", "t.yaml:3:37: a failure has an error for its status"},
        {"steps:\n  - machine-check: {processor: [], bank: 0, status: 1}", "t.yaml:4:32: one item at least"},
        {"machine: {pcie: {dump: {file: .}}}", "t.yaml:3:31: \".\" cannot be read"},
    };
    for (const Row& Case : Rows) {
        SCOPED_TRACE(Case.Text);
        try {
            ParseScenario(std::string("name: x\nabout: y\n") + Case.Text, "t.yaml");
            ADD_FAILURE() << "was taken";
        } catch (const ScenarioError& Error) {
            EXPECT_TRUE(std::string_view(Error.what()).starts_with(Case.Says)) << Error.what();
        }
    }
    for (const char* Text : {"", "[]", "name: x\n---\nname: y\n", "name: X y\nabout: z\n", "about: only\n"}) {
        EXPECT_THROW(ParseScenario(Text, "t.yaml"), ScenarioError) << Text;
    }
    // Looks like UTF-32, which the YAML library never comes back from.
    EXPECT_THROW(ParseScenario(std::string("\0\0\0,`7\0`\4", 9), "t.yaml"), ScenarioError);
}

TEST(ScenarioFile, NumbersBytesAndDurations) {
    using namespace Simulator;
    EXPECT_EQ(ParseNumber("0"), 0u);
    EXPECT_EQ(ParseNumber("18446744073709551615"), UINT64_MAX);
    EXPECT_EQ(ParseNumber("0xdeadBEEF"), 0xDEADBEEFu);
    for (const char* Text : {"", "010", "0x", "-1", "1 ", "0x1G", "18446744073709551616", "0x10000000000000000"}) {
        EXPECT_EQ(ParseNumber(Text), std::nullopt) << Text;
    }
    EXPECT_EQ(ParseBytes(""), std::vector<std::uint8_t>());
    EXPECT_EQ(ParseBytes("07 3c FF"), (std::vector<std::uint8_t>{7, 0x3C, 0xFF}));
    for (const char* Text : {"7", "073C", "07  3C", "07 ", "07 3", "0G", "+7"}) {
        EXPECT_EQ(ParseBytes(Text), std::nullopt) << Text;
    }
    EXPECT_EQ(ParseDuration("9m59s"), 599'000'000u);
    EXPECT_EQ(ParseDuration("1h1ms20us"), 3'600'001'020u);
    for (const char* Text : {"", "s", "10", "1s2", "1 s", "1x", "99999999999999999999s", "9999999999999h"}) {
        EXPECT_EQ(ParseDuration(Text), std::nullopt) << Text;
    }
}

}  // namespace
