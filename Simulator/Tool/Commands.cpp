#include "Simulator/Tool/Commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "Simulator/Decode/Decoded.h"
#include "Simulator/Firmware/Names.h"
#include "Simulator/Machine/Machine.h"
#include "Simulator/Machine/PciDump.h"
#include "Simulator/Scenario/PlainText.h"
#include "Simulator/Scenario/Runner.h"
#include "Simulator/Tool/RunOutput.h"
#include "Simulator/Tool/RunReport.h"

namespace Simulator {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr int AsExpected = 0;
constexpr int Missed = 1;
constexpr int BadInput = 2;

std::vector<std::string> TraceLines(const RunResult& Result, TraceChoice Choice) {
    std::vector<std::string> Lines;
    std::string_view Rest = Result.TraceLog;
    while (Choice != TraceChoice::None && !Rest.empty()) {
        const std::size_t End = std::min(Rest.find('\n'), Rest.size());
        const std::string_view Line = Rest.substr(0, End);
        if (Choice == TraceChoice::All || Line.find("ERROR") != Line.npos) {
            Lines.emplace_back(Line);
        }
        Rest.remove_prefix(std::min(End + 1, Rest.size()));
    }
    return Lines;
}

Json RunJson(const Scenario& What, const RunResult& Result, TraceChoice Trace) {
    Json Misses = Json::array();
    for (const Miss& One : Result.Misses) {
        Misses.push_back({{"where", One.Where.Text()}, {"what", One.What}, {"nearest", One.Nearest}});
    }
    Json Counts = Json::object();
    for (const Event& One : Result.Events.Events()) {
        Counts[One.Kind] = Counts.value(One.Kind, 0) + 1;
    }
    Json Records = Json::array();
    for (const std::vector<std::uint8_t>& Record : Result.Records) {
        Records.push_back(RecordJson(Record));
    }
    Json Document{{"name", What.Name},
                  {"file", What.File},
                  {"about", What.About},
                  {"entry", StatusName(Result.Entry)},
                  {"as-expected", Result.Passed()},
                  {"misses", Misses},
                  {"events", Counts},
                  {"records", Records},
                  {"sel", ToJson(DecodeSel(Result.SelRaw))},
                  {"pool", {{"live-blocks", Result.Pool.LiveBlocks}, {"live-bytes", Result.Pool.LiveBytes}}}};
    if (Trace != TraceChoice::None) {
        Document["trace"] = TraceLines(Result, Trace);
    }
    return Document;
}

class RunSession {
 public:
    RunSession(const RunOptions& Options, std::ostream& Out, std::ostream& Errors)
        : Options(Options), Out(Out), Errors(Errors) {}

    int Run() {
        Load();
        for (const Scenario& What : Scenarios) {
            RunOne(What);
        }
        if (Options.Json) {
            Out << Documents.dump(2) << "\n";
        } else if (Options.Files.size() > 1) {
            Out << fmt::format("{} scenarios: {} as expected, {} missed, {} not understood\n", Options.Files.size(),
                               Options.Files.size() - MissedCount - BadCount, MissedCount, BadCount);
        }
        return BadCount ? BadInput : MissedCount ? Missed : AsExpected;
    }

 private:
    // FILE@ADDRESS, nothing for an empty text; throws std::invalid_argument for anything else.
    static std::optional<SharedErrorSettings> OsMemoryOf(const std::string& Text) {
        if (Text.empty()) {
            return std::nullopt;
        }
        const std::size_t At = Text.rfind('@');
        const auto Address = At == Text.npos ? std::nullopt : ParseNumber(std::string_view(Text).substr(At + 1));
        if (At == 0 || !Address) {
            throw std::invalid_argument(fmt::format("--os-memory {}: FILE@ADDRESS is wanted", Text));
        }
        return SharedErrorSettings{Text.substr(0, At), *Address};
    }

    void Load() {
        const std::optional<SharedErrorSettings> OsMemory = OsMemoryOf(Options.OsMemory);
        std::set<std::string> Names;
        for (const fs::path& File : Options.Files) {
            try {
                Scenario What = LoadScenario(File);
                if (!Options.Out.empty() && !Names.insert(What.Name).second) {
                    throw ScenarioError({What.File},
                                        fmt::format("another file has the name {} too; names of their own "
                                                    "are needed where --out makes folders of them",
                                                    What.Name));
                }
                What.Machine.SharedErrors = OsMemory;
                Scenarios.push_back(std::move(What));
            } catch (const ScenarioError& Error) {
                Refuse(Error.what());
            }
        }
    }

    void RunOne(const Scenario& What) {
        try {
            const RunResult Result = RunScenario(What);
            if (!Options.Out.empty()) {
                WriteRun(Options.Files.size() > 1 ? Options.Out / What.Name : Options.Out, Result);
            }
            MissedCount += Result.Passed() ? 0 : 1;
            if (Options.Json) {
                Documents.push_back(RunJson(What, Result, Options.Trace));
                return;
            }
            Out << RunReport(What, Result, Options.Colours);
            for (const std::string& Line : TraceLines(Result, Options.Trace)) {
                Out << "  | " << Line << "\n";
            }
            Out << "\n";
        } catch (const ScenarioError& Error) {
            Refuse(Error.what());
        } catch (const std::exception& Error) {
            Refuse(fmt::format("{}: {}", What.File, Error.what()));
        }
    }

    void Refuse(const std::string& Why) {
        Errors << Why << "\n";
        ++BadCount;
    }

    const RunOptions& Options;
    std::ostream& Out;
    std::ostream& Errors;
    std::vector<Scenario> Scenarios;
    Json Documents = Json::array();
    std::size_t MissedCount = 0;
    std::size_t BadCount = 0;
};

// A record begins with its signature; a file that says it is one is told as one even where the signature is gone.
bool IsCper(const fs::path& File, const std::vector<std::uint8_t>& Bytes) {
    constexpr std::string_view Signature = "CPER";
    return File.extension() == ".cper" ||
           (Bytes.size() >= Signature.size() && std::equal(Signature.begin(), Signature.end(), Bytes.begin()));
}

}  // namespace

int RunCommand(const RunOptions& Options, std::ostream& Out, std::ostream& Errors) {
    return RunSession(Options, Out, Errors).Run();
}

int DecodeCommand(const fs::path& File, bool AsJson, std::ostream& Out, std::ostream& Errors) {
    try {
        const std::vector<std::uint8_t> Bytes = ReadFile(File);
        const std::vector<DecodedItem> Items = IsCper(File, Bytes) ? DecodeCper(Bytes) : DecodeSel(Bytes);
        Out << (AsJson ? ToJson(Items).dump(2) + "\n" : ToText(Items));
        return AsExpected;
    } catch (const DecodeError& Error) {
        Errors << File.string() << ": " << Error.what() << "\n";
    } catch (const fs::filesystem_error& Error) {
        Errors << Error.what() << "\n";
    }
    return BadInput;
}

int DumpCommand(const fs::path& File, std::ostream& Out, std::ostream& Errors) {
    try {
        RunScenario(LoadScenario(File), [&Out](Simulation& Run) { Out << WritePciDump(Run.Machine().Pci()); });
        return AsExpected;
    } catch (const ScenarioError& Error) {
        Errors << Error.what() << "\n";
    }
    return BadInput;
}

int ListCommand(const fs::path& Folder, bool AsJson, std::ostream& Out, std::ostream& Errors) {
    std::vector<fs::path> Files;
    std::error_code Failed;
    for (const fs::directory_entry& Entry : fs::directory_iterator(Folder, Failed)) {
        if (Entry.path().extension() == ".yaml") {
            Files.push_back(Entry.path());
        }
    }
    if (Failed) {
        Errors << Folder.string() << ": " << Failed.message() << "\n";
        return BadInput;
    }
    std::ranges::sort(Files);
    int Status = AsExpected;
    std::vector<Scenario> Scenarios;
    std::size_t NameWidth = 0;
    for (const fs::path& File : Files) {
        try {
            Scenarios.push_back(LoadScenario(File));
            NameWidth = std::max(NameWidth, Scenarios.back().Name.size());
        } catch (const ScenarioError& Error) {
            Errors << Error.what() << "\n";
            Status = BadInput;
        }
    }
    Json Documents = Json::array();
    for (const Scenario& What : Scenarios) {
        Documents.push_back({{"name", What.Name}, {"file", What.File}, {"about", What.About}});
        if (!AsJson) {
            Out << fmt::format("{:<{}}  {}\n", What.Name, NameWidth, What.About);
        }
    }
    if (AsJson) {
        Out << Documents.dump(2) << "\n";
    }
    return Status;
}

}  // namespace Simulator
