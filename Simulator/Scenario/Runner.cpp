#include "Simulator/Scenario/Runner.h"

#include <fmt/format.h>

#include <algorithm>
#include <new>

#include "Simulator/Decode/Decoded.h"
#include "Simulator/Firmware/Names.h"
#include "Simulator/Machine/Fault.h"

namespace Simulator {

namespace {

constexpr std::size_t NearestShown = 3;
constexpr std::size_t DifferencesShown = 3;

std::string EventText(const Event& One) {
    std::string Text = nlohmann::ordered_json(One.Fields).dump();
    if (Text.size() > 120) {
        Text = Text.substr(0, 117) + "...";
    }
    return fmt::format("{} (step {}, {} us) {}", One.Kind, One.Step, One.Time, Text);
}

class Matcher {
 public:
    Matcher(const std::vector<Event>& Events, std::map<std::string, RecordView> Records)
        : Events(Events), Records(std::move(Records)) {}

    bool Matches(const EventPattern& Pattern, const Event& One) const {
        return Differences(Pattern, One, Records).empty();
    }

    void CompareExpected(const std::vector<EventPattern>& Expect, std::vector<Miss>& Into) const {
        std::size_t After = 0;
        for (const EventPattern& Pattern : Expect) {
            std::size_t Index = After;
            while (Index < Events.size() && !Matches(Pattern, Events[Index])) {
                ++Index;
            }
            if (Index < Events.size()) {
                After = Index + 1;
            } else {
                Into.push_back({Pattern.Where,
                                fmt::format("expected {}, but no event{} matches", Pattern.Text(),
                                            After == 0 ? "" : " after the one before it"),
                                Nearest(Pattern, After)});
            }
        }
    }

    void CompareNever(const std::vector<EventPattern>& Never, std::vector<Miss>& Into) const {
        for (const EventPattern& Pattern : Never) {
            for (const Event& One : Events) {
                if (Matches(Pattern, One)) {
                    Into.push_back({Pattern.Where,
                                    fmt::format("{} must never come, but it did", Pattern.Text()),
                                    {EventText(One)}});
                    break;
                }
            }
        }
    }

    void CompareCounts(const std::vector<CountExpectation>& Counts, std::vector<Miss>& Into) const {
        for (const CountExpectation& Count : Counts) {
            const auto Came = static_cast<std::uint64_t>(
                std::ranges::count_if(Events, [&](const Event& One) { return Matches(Count.Pattern, One); }));
            if (Came != Count.Times) {
                Into.push_back({Count.Pattern.Where,
                                fmt::format("{} must come {} times, but it came {} times", Count.Pattern.Text(),
                                            Count.Times, Came),
                                {}});
            }
        }
    }

 private:
    // Events of the pattern's kind with the fewest differences first; one that matches came too early.
    std::vector<std::string> Nearest(const EventPattern& Pattern, std::size_t After) const {
        struct Candidate {
            std::vector<std::string> Wrong;
            std::size_t Index;
        };
        std::vector<Candidate> Candidates;
        for (std::size_t Index = 0; Index < Events.size(); ++Index) {
            if (Events[Index].Kind == Pattern.Kind) {
                Candidates.push_back({Differences(Pattern, Events[Index], Records), Index});
            }
        }
        std::ranges::stable_sort(Candidates, {}, [](const Candidate& One) { return One.Wrong.size(); });
        std::vector<std::string> Lines;
        for (const Candidate& One : Candidates) {
            if (Lines.size() == NearestShown) {
                break;
            }
            std::string Why = One.Index < After ? "came too early" : "";
            for (std::size_t Index = 0; Index < std::min(One.Wrong.size(), DifferencesShown); ++Index) {
                Why += (Why.empty() ? "" : "; ") + One.Wrong[Index];
            }
            Lines.push_back(EventText(Events[One.Index]) + ": " + Why);
        }
        if (Candidates.empty()) {
            Lines.push_back(fmt::format("no {} event came at all", Pattern.Kind));
        }
        return Lines;
    }

    const std::vector<Event>& Events;
    const std::map<std::string, RecordView> Records;
};

// What ghes-log events name by file.
std::map<std::string, RecordView> ViewRecords(const RunResult& Result) {
    std::map<std::string, RecordView> Views;
    for (std::size_t Index = 0; Index < Result.Records.size(); ++Index) {
        Views[RecordFileName(Index)] = {Result.Records[Index], RecordJson(Result.Records[Index])};
    }
    return Views;
}

void DoSteps(const Scenario& What, Simulation& Run, RunResult& Result) {
    for (std::size_t Index = 0; Index < What.Steps.size(); ++Index) {
        const Step& One = What.Steps[Index];
        Run.Events().SetStep(static_cast<int>(Index));
        try {
            if (const std::optional<std::string> Came = One.Do(Run)) {
                Result.Misses.push_back({One.Where, fmt::format("{} ({}): {}", One.Kind, One.Summary, *Came), {}});
            }
        } catch (const std::invalid_argument& Error) {
            throw ScenarioError(One.Where, Error.what());
        }
    }
}

void CompareKept(const Scenario& What, std::int64_t Kept, RunResult& Result) {
    if (Kept != What.Kept) {
        Result.Misses.push_back(
            {{What.File},
             fmt::format("the run's SMIs leave {} pool blocks allocated, wanted {} (\"kept\" says "
                         "how many the rules keep)",
                         Kept, What.Kept),
             {}});
    }
}

}  // namespace

RunResult RunScenario(const Scenario& What, const std::function<void(Simulation&)>& AtEnd) {
    RunResult Result;
    std::unique_ptr<Simulation> Run;
    try {
        Run = std::make_unique<Simulation>(What.Machine);
    } catch (const std::invalid_argument& Error) {
        throw ScenarioError(What.MachineWhere, Error.what());
    } catch (const std::bad_alloc&) {
        throw ScenarioError(What.MachineWhere, "the machine's data are larger than the memory for them");
    }
    try {
        Result.Entry = Run->Boot();
        if (Result.Entry != What.Entry) {
            Result.Misses.push_back({{What.File},
                                     fmt::format("the driver's start returned {}, wanted {}",
                                                 StatusName(Result.Entry), StatusName(What.Entry)),
                                     {}});
        }
        DoSteps(What, *Run, Result);
        CompareKept(What, static_cast<std::int64_t>(Run->Pool().LiveBlocks - Run->BlocksAtBoot()), Result);
    } catch (const Fault& Stop) {
        Result.Misses.push_back({{What.File}, fmt::format("the machine stopped: {}", Stop.what()), {}});
    }
    if (AtEnd) {
        AtEnd(*Run);
    }
    Result.Events = Run->Events();
    Result.TraceLog = Run->TraceLog();
    Result.Records = Run->LoggedRecords();
    Result.SelRaw = Run->SelRaw();
    Result.GhesStatusBlock = Run->GhesStatusBlock();
    Result.Pool = Run->Pool();

    const Matcher Comparison(Result.Events.Events(), ViewRecords(Result));
    Comparison.CompareExpected(What.Expect, Result.Misses);
    Comparison.CompareNever(What.Never, Result.Misses);
    Comparison.CompareCounts(What.Count, Result.Misses);
    return Result;
}

}  // namespace Simulator
