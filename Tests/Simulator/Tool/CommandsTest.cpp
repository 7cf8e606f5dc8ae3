// The tool's commands: exit statuses, what they print, what they leave behind.
#include "Simulator/Tool/Commands.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Simulator/Tool/RunOutput.h"

namespace {

namespace fs = std::filesystem;
using Simulator::DecodeCommand;
using Simulator::ListCommand;
using Simulator::RunOptions;

constexpr char Passing[] =
    "name: NAME\nabout: An uncorrected error\nsteps:\n"
    "  - machine-check: {processor: 1, bank: 5, status: 0xbea0000000000108, addr: 0x1ffffad66d6fe}\n"
    "  - smi: machine-check\n";

class Commands : public testing::Test {
 protected:
    Commands() : Folder(fs::temp_directory_path() / ("ras-sim-test-" + std::to_string(getpid()))) {
        fs::create_directories(Folder);
    }
    ~Commands() override {
        fs::remove_all(Folder);
    }

    fs::path Write(const std::string& Name, std::string Text) {
        if (const std::size_t At = Text.find("NAME"); At != Text.npos) {
            Text.replace(At, 4, Name);
        }
        const fs::path File = Folder / (Name + ".yaml");
        std::ofstream(File) << Text;
        return File;
    }

    int RunTool(const RunOptions& Options) {
        Out.str("");
        Errors.str("");
        return RunCommand(Options, Out, Errors);
    }

    fs::path Folder;
    std::ostringstream Out, Errors;
};

TEST_F(Commands, RunShowsWhatHappenedWithin100Columns) {
    RunOptions Options{.Files = {Write("fatal", Passing)}};
    EXPECT_EQ(RunTool(Options), 0) << Out.str() << Errors.str();
    const std::string Text = Out.str();
    for (const char* Wanted :
         {"2 sockets x 4 cores x 2 threads, 32 banks each, 12 x 2 DIMMs a socket, 8 root complexes",
          "step 0   machine-check         processor 1 bank 5: fatal", "SMI 1  machine-check",
          "source   processor 1           machine check redirected",
          "07 0D 07 A6 01 01     uncorrected (CPU0704) machine check, socket 0, APIC ID 0x01",
          "location: APIC ID 0x1, socket 0", "MSR 0xC0002051 (mca-status of bank 5) = 0xBEA0000000000108",
          "GHES     records/0001.cper     fatal, IA32/X64 processor error, 472 bytes", "SCI, cause 0x20000000",
          "machine-check exception on processor 1", "as expected"}) {
        EXPECT_NE(Text.find(Wanted), std::string::npos) << Wanted << " is not in\n" << Text;
    }
    EXPECT_EQ(Text.find('\x1b'), std::string::npos);
    std::istringstream Lines(Text);
    for (std::string Line; std::getline(Lines, Line);) {
        EXPECT_LE(Line.size(), 100u) << Line;
    }
    Options.Colours = true;
    RunTool(Options);
    EXPECT_NE(Out.str().find("\x1b[31m"), std::string::npos);

    Options.Trace = Simulator::TraceChoice::All;
    RunTool(Options);
    EXPECT_NE(Out.str().find("  | [SMM] APIC 0x00 S00:C00:T00 > "), std::string::npos);
    Options.Trace = Simulator::TraceChoice::Errors;
    Options.Files = {Write("failing", std::string(Passing) + "machine: {failing: {SetMcaCloakCfg: EFI_TIMEOUT}}\n")};
    RunTool(Options);
    const std::string Failing = Out.str();
    EXPECT_NE(Failing.find("SetMcaCloakCfg        processor 0x1, uncloak 0x20, EFI_TIMEOUT"), Failing.npos)
        << Failing;
    EXPECT_NE(Failing.find("from SetMcaCloakCfg to uncloak Processor 1 Bank 5"), Failing.npos) << Failing;
    EXPECT_EQ(Failing.find("JRV RAS SMM driver entry"), Failing.npos);
}

TEST_F(Commands, OutLeavesWhatTheDecoderReads) {
    const fs::path Out1 = Folder / "out";
    fs::create_directories(Out1 / "records");
    std::ofstream(Out1 / "records" / "0009.cper") << "of an earlier run";
    ASSERT_EQ(RunTool({.Files = {Write("fatal", Passing)}, .Out = Out1}), 0);
    EXPECT_FALSE(fs::exists(Out1 / "records" / "0009.cper"));
    EXPECT_EQ(fs::file_size(Out1 / "sel.raw"), 33u * 16);
    EXPECT_GT(fs::file_size(Out1 / "ghes.bin"), 20u);
    EXPECT_GT(fs::file_size(Out1 / "trace.log"), 0u);
    std::ifstream Journal(Out1 / "journal.jsonl");
    std::string Line;
    ASSERT_TRUE(std::getline(Journal, Line));
    EXPECT_EQ(nlohmann::json::parse(Line)["step"], -1);

    const fs::path Record = Out1 / "records" / "0001.cper";
    std::ostringstream Text, Json;
    EXPECT_EQ(DecodeCommand(Record, false, Text, Errors), 0);
    EXPECT_NE(Text.str().find("machine-check exception"), std::string::npos);
    EXPECT_EQ(DecodeCommand(Out1 / "sel.raw", true, Json, Errors), 0);
    EXPECT_EQ(nlohmann::json::parse(Json.str())["record"].size(), 33u);

    fs::resize_file(Record, 300);
    Errors.str("");
    EXPECT_EQ(DecodeCommand(Record, false, Text, Errors), 2);
    EXPECT_EQ(Errors.str(),
              Record.string() + ": the record says that it is 472 bytes long, but only 300 are there\n");
    for (const fs::path& File : {Out1 / "absent.cper", Out1, Out1 / "journal.jsonl"}) {
        EXPECT_EQ(DecodeCommand(File, false, Text, Errors), 2) << File;
    }

    const fs::path Many = Folder / "many";
    ASSERT_EQ(RunTool({.Files = {Write("one", Passing), Write("two", Passing)}, .Out = Many}), 0);
    EXPECT_TRUE(fs::exists(Many / "one" / "sel.raw") && fs::exists(Many / "two" / "records" / "0001.cper"));
}

TEST_F(Commands, JsonIsOneDocument) {
    const fs::path Good = Write("good", Passing);
    EXPECT_EQ(RunTool({.Files = {Good, Write("missed", std::string(Passing) + "kept: 3\n")}, .Json = true}), 1);
    const nlohmann::json Document = nlohmann::json::parse(Out.str());
    ASSERT_EQ(Document.size(), 2u);
    EXPECT_EQ(Document[0]["as-expected"], true);
    EXPECT_EQ(Document[0]["events"]["sel"], 33);
    EXPECT_EQ(Document[0]["records"][0]["header"]["severity"]["meaning"], "fatal");
    EXPECT_EQ(Document[1]["misses"].size(), 1u);

    std::ostringstream List;
    EXPECT_EQ(ListCommand(Folder, false, List, Errors), 0);
    EXPECT_EQ(List.str(), "good    An uncorrected error\nmissed  An uncorrected error\n");
    EXPECT_EQ(ListCommand(Folder / "absent", false, List, Errors), 2);
}

// The executable itself: its exit status is what a shell sees.
TEST_F(Commands, ExecutableExitsAsItPromises) {
    const auto Exit = [](const std::string& Arguments) {
        const int Status = std::system((std::string(RAS_SIM) + " " + Arguments + " >/dev/null 2>&1").c_str());
        return WIFEXITED(Status) ? WEXITSTATUS(Status) : -1;
    };
    const std::string Good = Write("good", Passing).string();
    const std::pair<std::string, int> Rows[] = {
        {"run " + Good, 0},
        {"run --trace errors --json --out " + (Folder / "o").string() + " " + Good, 0},
        {"run " + Write("missed", std::string(Passing) + "kept: 3\n").string(), 1},
        {"run " + (Folder / "absent.yaml").string(), 2},
        {"run --trace loud " + Good, 2},
        {"run --trace 7 " + Good, 2},
        {"run --os-memory " + Good + "@-4096 " + Good, 2},
        {"run --os-memory " + Good + "@0xFFFFFFFFFFFFF000 " + Good, 2},
        {"run --os-memory " + Good + "@99999999999999999999 " + Good, 2},
        {"run --out " + Good + " " + Good, 2},
        {"dump " + Folder.string(), 2},
        {"run", 2},
        {"walk", 2},
        {"", 2},
        {"--help", 0},
        {"list", 0},
        {"decode " + (Folder / "o" / "sel.raw").string(), 0},
        {"decode " + Good, 2},
    };
    for (const auto& [Arguments, Wanted] : Rows) {
        EXPECT_EQ(Exit(Arguments), Wanted) << Arguments;
    }
}

}  // namespace
