#include "Simulator/Tool/RunReport.h"

#include <fmt/format.h>

#include <map>

#include "Simulator/Decode/Decoded.h"
#include "Simulator/Decode/HealthEvent.h"
#include "Simulator/Firmware/Names.h"
#include "Simulator/Scenario/PlainText.h"

namespace Simulator {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t ColumnLimit = 100;
constexpr std::size_t SmisShownPerStep = 6;

enum class Paint { Plain, Bold, Red, Green, Yellow };

class Report {
 public:
    explicit Report(bool Colours) : Colours(Colours) {}

    // Three columns: what happened, to what, in detail.
    void Row(std::string_view What, std::string_view Where, std::string Detail, Paint How = Paint::Plain) {
        constexpr std::size_t DetailAt = 33;
        std::string Front = fmt::format("  {:<8} {:<20}  ", What, Where);
        if (Front.size() > DetailAt) {
            Line(Front, How);
            Front = std::string(DetailAt, ' ');
        }
        Wrap(std::move(Front), DetailAt, std::move(Detail), How);
    }

    // Two columns: a property of the run and what it is.
    void Property(std::string_view What, std::string Detail, Paint How = Paint::Plain) {
        std::string Front = fmt::format("  {:<8} ", What);
        const std::size_t DetailAt = Front.size();
        Wrap(std::move(Front), DetailAt, std::move(Detail), How);
    }

    // A detail that does not fit goes on beneath itself.
    void Wrap(std::string Front, std::size_t DetailAt, std::string Detail, Paint How) {
        do {
            std::size_t Cut = ColumnLimit - DetailAt;
            if (Detail.size() > Cut) {
                const std::size_t Space = Detail.rfind(' ', Cut);
                Cut = Space == Detail.npos ? Cut : Space;
            }
            Line(Front + Detail.substr(0, Cut), How);
            Detail.erase(0, std::min(Detail.find_first_not_of(' ', Cut), Detail.size()));
            Front = std::string(DetailAt, ' ');
        } while (!Detail.empty());
    }

    void Line(std::string_view Text, Paint How = Paint::Plain) {
        constexpr const char* Codes[] = {"", "\x1b[1m", "\x1b[31m", "\x1b[32m", "\x1b[33m"};
        const bool Painted = Colours && How != Paint::Plain;
        Text = Text.substr(0, Text.find_last_not_of(' ') + 1);
        Lines += fmt::format("{}{}{}\n", Painted ? Codes[static_cast<int>(How)] : "", Text, Painted ? "\x1b[0m" : "");
    }

    std::string Lines;

 private:
    bool Colours;
};

std::string Seconds(std::uint64_t Microseconds) {
    return fmt::format("{}.{:06} s", Microseconds / 1'000'000, Microseconds % 1'000'000);
}

std::string Field(const Event& One, const char* Name) {
    const auto Found = One.Fields.find(Name);
    return Found == One.Fields.end() ? "" : Found->is_string() ? Found->get<std::string>() : Found->dump();
}

std::uint64_t Number(const Event& One, const char* Name) {
    return ParseNumber(Field(One, Name)).value_or(0);
}

// ", EFI_..." where the event has a status that is no success.
std::string FailureText(const Event& One) {
    const std::string Status = Field(One, "status");
    return Status.empty() || Status == StatusName(EFI_SUCCESS) ? "" : ", " + Status;
}

// A decoded item's meaning, else its value.
std::string Told(const Json& Item) {
    return Item.is_object() ? Item.value("meaning", Item.value("value", "")) : Item.get<std::string>();
}

// Ports of a root complex that have errors, and what else it asks for.
std::string PortsText(std::uint64_t Ports, std::uint64_t Status) {
    std::string Text;
    for (unsigned Port = 0; Port < 64; Port++) {
        if ((Ports >> Port & 1) != 0) {
            Text += fmt::format("{}port {}", Text.empty() ? "" : ", ", Port);
        }
    }
    return Text + (Status == 0 ? "" : Text.empty() ? "CXL event" : ", CXL event");
}

// Local SMI status of a processor, in words.
std::string SourceText(std::uint64_t Status) {
    constexpr struct {
        unsigned Bit;
        const char* Words;
    } Sources[] = {
        {8, "machine check redirected"}, {11, "OS write to a cloaked register"}, {18, "machine-check interrupt"}};
    std::string Text;
    for (const auto& Source : Sources) {
        if (Status >> Source.Bit & 1) {
            Text += (Text.empty() ? "" : ", ") + std::string(Source.Words);
        }
    }
    return Text.empty() ? "local SMI status " + Hex(Status) : Text;
}

class Narrator {
 public:
    Narrator(Report& Into, const RunResult& Result) : Into(Into) {
        for (std::size_t Index = 0; Index < Result.Records.size(); ++Index) {
            Records[RecordFileName(Index)] = &Result.Records[Index];
        }
    }

    void Tell(const Event& One) {
        using Teller = void (Narrator::*)(const Event&);
        static const std::map<std::string_view, Teller> Tellers = {
            {"smi-enter", &Narrator::TellSources},  {"record", &Narrator::TellRecord},
            {"service", &Narrator::TellService},    {"sel", &Narrator::TellSel},
            {"sel-send", &Narrator::TellSelSend},   {"health", &Narrator::TellHealth},
            {"ghes-log", &Narrator::TellGhesLog},   {"page-retire", &Narrator::TellPageRetire},
            {"sci", &Narrator::TellSignal},         {"nmi", &Narrator::TellSignal},
            {"mce", &Narrator::TellSignal},         {"ppr", &Narrator::TellRepair},
            {"runtime-ppr", &Narrator::TellRepair}, {"post-errors", &Narrator::TellOther},
            {"alloc-fail", &Narrator::TellOther},   {"comm", &Narrator::TellOther},
        };
        const auto Found = Tellers.find(One.Kind);
        if (Found != Tellers.end()) {
            (this->*Found->second)(One);
        }
    }

 private:
    void TellSources(const Event& One) {
        constexpr std::size_t Shown = 8;
        const Json Sources = One.Fields.value("sources", Json::array());
        for (std::size_t Index = 0; Index < std::min(Sources.size(), Shown); ++Index) {
            const auto Number = [&](const char* Name) {
                return ParseNumber(Sources[Index].value(Name, "")).value_or(0);
            };
            if (Sources[Index].contains("root-complex")) {
                Into.Row("source", fmt::format("root complex {}", Number("root-complex")),
                         PortsText(Number("ports"), Number("status")));
            } else {
                Into.Row("source", fmt::format("processor {}", Number("processor")), SourceText(Number("status")));
            }
        }
        if (Sources.size() > Shown) {
            Into.Row("source", "", fmt::format("and {} more", Sources.size() - Shown));
        } else if (Sources.empty()) {
            Into.Row("source", "none", "nothing is pending");
        }
    }

    // Arguments that are zero say little, but for whom the call is about.
    void TellService(const Event& One) {
        std::string Detail;
        for (const auto& [Name, Value] : One.Fields.items()) {
            const std::string Text = Field(One, Name.c_str());
            const bool Counts = Name == "processor" || Name == "bank" || Text != "0x0";
            if (Counts && Name != "member" && Name != "status") {
                Detail += fmt::format("{}{} {}", Detail.empty() ? "" : ", ", Name, Text);
            }
        }
        Into.Row("silicon", Field(One, "member"), Detail + FailureText(One));
    }

    void TellRecord(const Event& One) {
        Into.Row("record", Field(One, "section"),
                 fmt::format("severity {}, {} bytes", Field(One, "header-severity"),
                             ParseNumber(Field(One, "length")).value_or(0)));
    }

    void TellSel(const Event& One) {
        const std::string Text = Field(One, "bytes");
        const std::vector<std::uint8_t> Bytes = ParseBytes(Text).value_or(std::vector<std::uint8_t>());
        if (Bytes.size() != 6) {
            Into.Row("SEL", Text, "not an event body");
            return;
        }
        const std::string Meaning = Events.Tell(std::span<const std::uint8_t, 6>(Bytes.data(), 6));
        // A register's first events say nothing yet; its last one tells the whole.
        if (Meaning.starts_with("register data")) {
            ++Unfinished;
            return;
        }
        Into.Row("SEL", Unfinished ? fmt::format("{} ({} events)", Text.substr(0, 8), Unfinished + 1) : Text,
                 Meaning + FailureText(One));
        Unfinished = 0;
    }

    void TellSelSend(const Event& One) {
        Into.Row("BMC", "sent",
                 fmt::format("{} events{}", ParseNumber(Field(One, "count")).value_or(0), FailureText(One)));
    }

    void TellHealth(const Event& One) {
        const auto Bytes = ParseBytes(Field(One, "bytes")).value_or(std::vector<std::uint8_t>());
        Into.Row("BMC", "memory health", DescribeHealthEvent(Bytes) + FailureText(One));
    }

    void TellPageRetire(const Event& One) {
        Into.Row("GHES", "page retire",
                 fmt::format("{}, {}, threshold {}", Field(One, "address"), Field(One, "fru"),
                             ParseNumber(Field(One, "threshold")).value_or(0)));
    }

    // A row on its way to be repaired, or the end of the way.
    void TellRepair(const Event& One) {
        const bool AtRunTime = One.Kind == "runtime-ppr";
        const std::string Detail =
            One.Fields.contains("row")
                ? fmt::format("socket {} channel {} chip select {} bank {} row {}", Number(One, "socket"),
                              Number(One, "channel"), Number(One, "chip-select"), Number(One, "bank"),
                              Field(One, "row"))
                : fmt::format("status {}{}", Field(One, "status"),
                              One.Fields.contains("bytes") ? ", rows " + Field(One, "bytes") : "");
        Into.Row(AtRunTime ? "PSP" : "repair", Field(One, "phase"), Detail);
    }

    void TellGhesLog(const Event& One) {
        std::string Detail = "severity " + Field(One, "severity");
        Paint How = Paint::Plain;
        const auto Record = Records.find(Field(One, "file"));
        if (Record != Records.end()) {
            try {
                const Json Decoded = ToJson(DecodeCper(*Record->second));
                const std::string Severity = Told(Decoded["header"]["severity"]);
                How = Severity == "corrected" ? Paint::Yellow : Paint::Red;
                Detail = fmt::format("{}, {}, {}", Severity, Told(Decoded["section"]["type"]),
                                     Told(Decoded["header"]["record-length"]));
            } catch (const DecodeError& Error) {
                Detail = fmt::format("cannot be read: {}", Error.what());
            }
        }
        Into.Row("GHES", Field(One, "file"), Detail + FailureText(One), How);
    }

    void TellSignal(const Event& One) {
        std::string Detail;
        if (One.Kind == "sci") {
            Detail = "SCI, cause " + Field(One, "cause");
        } else if (One.Kind == "mce") {
            Detail = fmt::format("machine-check exception on processor {}",
                                 ParseNumber(Field(One, "processor")).value_or(0));
        } else {
            Detail = "NMI";
        }
        Into.Row("OS", "signal", Detail + FailureText(One), One.Kind == "sci" ? Paint::Bold : Paint::Red);
    }

    void TellOther(const Event& One) {
        std::string Detail;
        for (const auto& Item : One.Fields.items()) {
            Detail += fmt::format("{}{} {}", Detail.empty() ? "" : ", ", Item.key(), Field(One, Item.key().c_str()));
        }
        Into.Row("event", One.Kind, Detail);
    }

    Report& Into;
    std::map<std::string, const std::vector<std::uint8_t>*> Records;
    SelNarrator Events;
    unsigned Unfinished = 0;
};

// The events of one step, SMI by SMI; of many SMIs only the first ones.
void TellStep(Report& Into, Narrator& Teller, std::span<const Event> Events, unsigned& SmiNumber) {
    std::size_t Smis = 0;
    for (const Event& One : Events) {
        if (One.Kind == "smi-enter") {
            ++SmiNumber;
            if (++Smis <= SmisShownPerStep) {
                Into.Line(fmt::format("SMI {}  {} at {}", SmiNumber, Field(One, "kind"), Seconds(One.Time)),
                          Paint::Bold);
                Teller.Tell(One);
            }
        } else if (Smis <= SmisShownPerStep && !(Smis == 0 && One.Kind == "service")) {
            // Services that are called outside of an SMI belong to a start, which goes without saying.
            Teller.Tell(One);
        }
    }
    if (Smis > SmisShownPerStep) {
        Into.Line(fmt::format("  ... and {} more SMIs of this step", Smis - SmisShownPerStep));
    }
}

std::string SettingsText(const Configuration& Machine) {
    std::string Text;
    const auto Add = [&](const std::string& Part) { Text += (Text.empty() ? "" : "; ") + Part; };
    for (const auto& [Name, Value] : Machine.Apei) {
        Add(fmt::format("{} {}", Name, Value));
    }
    for (const auto& [Name, Value] : Machine.Attributes) {
        Add(fmt::format("{} \"{}\"", Name, Value));
    }
    for (const std::string& Name : Machine.Missing) {
        Add("without " + Name);
    }
    for (const auto& [Name, How] : Machine.Failing) {
        Add(fmt::format("{} fails with {}", Name, StatusName(How.Status)));
    }
    if (Machine.ManufacturingMode) {
        Add(fmt::format("manufacturing mode {}", Machine.ManufacturingMode));
    }
    if (!Machine.SilentProcessors.empty()) {
        Add(fmt::format("{} silent processors", Machine.SilentProcessors.size()));
    }
    if (Machine.FailAllocation) {
        Add(fmt::format("allocation {} fails", Machine.FailAllocation));
    }
    return Text;
}

std::string MachineText(const Configuration& Machine) {
    return fmt::format("{} sockets x {} cores x {} threads, {} banks each, {} x {} DIMMs a socket, {} root complexes",
                       Machine.Sockets, Machine.CoresPerSocket, Machine.ThreadsPerCore, Machine.BanksPerProcessor,
                       Machine.ChannelsPerSocket, Machine.DimmsPerChannel,
                       Machine.Sockets * Machine.RootComplexesPerSocket);
}

}  // namespace

std::string RunReport(const Scenario& What, const RunResult& Result, bool Colours) {
    Report Into(Colours);
    Into.Line(What.Name, Paint::Bold);
    Into.Property("about", What.About);
    Into.Property("machine", MachineText(What.Machine));
    if (const std::string Settings = SettingsText(What.Machine); !Settings.empty()) {
        Into.Property("settings", Settings);
    }
    if (EFI_ERROR(Result.Entry)) {
        Into.Property("start", StatusName(Result.Entry) + ": the driver is not loaded", Paint::Red);
    }

    Narrator Teller(Into, Result);
    const std::span<const Event> Events = Result.Events.Events();
    unsigned SmiNumber = 0;
    std::size_t Begin = 0;
    for (int Index = -1; Index < static_cast<int>(What.Steps.size()); ++Index) {
        if (Index >= 0) {
            const Step& One = What.Steps[static_cast<std::size_t>(Index)];
            Into.Row(fmt::format("step {}", Index), One.Kind, One.Summary);
        }
        std::size_t End = Begin;
        while (End < Events.size() && Events[End].Step == Index) {
            ++End;
        }
        if (Index >= 0) {
            TellStep(Into, Teller, Events.subspan(Begin, End - Begin), SmiNumber);
        }
        Begin = End;
    }

    for (const Miss& One : Result.Misses) {
        Into.Line(fmt::format("missed {}: {}", One.Where.Text(), One.What), Paint::Red);
        for (const std::string& Near : One.Nearest) {
            Into.Line("  near: " + Near);
        }
    }
    Into.Line(Result.Passed() ? "as expected" : fmt::format("{} expectations missed", Result.Misses.size()),
              Result.Passed() ? Paint::Green : Paint::Red);
    return Into.Lines;
}

}  // namespace Simulator
