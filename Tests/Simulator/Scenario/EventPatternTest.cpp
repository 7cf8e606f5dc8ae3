// How expectations match events.
#include <gtest/gtest.h>

#include "Simulator/Scenario/EventPattern.h"

namespace {

using Simulator::MatchesScalar;
using Json = nlohmann::ordered_json;

TEST(EventPattern, ScalarsMatchByWhatTheyAre) {
    struct Row {
        Json Value;
        const char* Wanted;
        bool Matches;
    };
    const Row Rows[] = {
        {"0x20000000", "536870912", true},
        {"0x20000000", "0x10000000", false},
        {7, "0x7", true},
        {-1, "-1", true},
        {-1, "0xFFFFFFFFFFFFFFFF", false},
        {true, "true", true},
        {"07 3C 6F AC 01 05", "07 3c 6f ac 01 05", true},
        {"07 3C 6F AC 01 05", "07 .. * AC 01 05", true},
        {"07 3C 6F AC 01 05", "07 3C **", true},
        {"07 3C 6F AC 01 05", "07 3C", false},
        {"07 3C", "07 3C 6F", false},
        {"07", "7", false},  // a byte is two digits
        {"EFI_SUCCESS", "EFI_SUCCESS", true},
        {"EFI_SUCCESS", "*", true},
        {"gFooGuid", "0x1", false},
    };
    for (const Row& Case : Rows) {
        EXPECT_EQ(MatchesScalar(Case.Value, Case.Wanted), Case.Matches) << Case.Value << " and " << Case.Wanted;
    }
}

TEST(EventPattern, FieldsMatchByNameAndDifferencesAreTold) {
    const Simulator::Event Found{
        "service",
        3,
        120,
        {{"member", "SetMcaCloakCfg"}, {"mask", {{"low", "0x1"}, {"high", "0x2"}}}, {"list", {1, 2}}}};
    struct Row {
        Json Fields;
        std::vector<std::string> Differences;
    };
    const Row Rows[] = {
        {Json::object(), {}},
        {{{"member", "SetMcaCloakCfg"}, {"mask", {{"high", "2"}}}, {"list", {"1", "*"}}}, {}},
        {{{"step", "3"}, {"time", "0x78"}}, {}},
        {{{"step", "4"}}, {"step is 3, wanted 4"}},
        {{{"mask", {{"low", "2"}, {"middle", "0"}}}},
         {"mask.low is 0x1, wanted 2", "mask.middle is absent, wanted 0"}},
        {{{"list", {"1"}}}, {"list is [1,2], wanted [\"1\"]"}},
        {{{"member", Json::object({{"a", "1"}})}}, {"member is SetMcaCloakCfg, wanted {\"a\":\"1\"}"}},
        {{{"record", Json::object()}}, {"record is absent: the event carries no record"}},
    };
    for (const Row& Case : Rows) {
        EXPECT_EQ(Differences({"service", Case.Fields, {}}, Found, {}), Case.Differences) << Case.Fields;
    }
    EXPECT_EQ(Differences({"sel", Json::object(), {}}, Found, {}).size(), 1u);
}

}  // namespace
