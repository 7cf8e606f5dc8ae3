#include "Tests/Support/BootedSimulation.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

namespace {

bool HasFields(const Simulator::Event& One, const std::map<std::string, std::string>& Fields) {
    return std::all_of(Fields.begin(), Fields.end(), [&One](const auto& Field) {
        const auto Found = One.Fields.find(Field.first);
        return Found != One.Fields.end() && Found->is_string() && *Found == Field.second;
    });
}

}  // namespace

BootedSimulation::BootedSimulation(Simulator::Configuration Settings)
    : Running(std::move(Settings)), Status(Running.Boot()) {}

void BootedSimulation::Forget() {
    Seen = Running.Events().Events().size();
}

EventList BootedSimulation::Events(std::string_view Kind, const std::map<std::string, std::string>& Fields) {
    EventList Found;
    const EventList& All = Running.Events().Events();
    for (std::size_t Index = Seen; Index < All.size(); Index++) {
        if (All[Index].Kind == Kind && HasFields(All[Index], Fields)) {
            Found.push_back(All[Index]);
        }
    }
    return Found;
}

std::size_t BootedSimulation::Count(std::string_view Kind, const std::map<std::string, std::string>& Fields) {
    return Events(Kind, Fields).size();
}

EventList BootedSimulation::Calls(const std::string& Member, std::map<std::string, std::string> Fields) {
    Fields["member"] = Member;
    return Events("service", Fields);
}

std::vector<std::string> BootedSimulation::SelBodies() {
    std::vector<std::string> Bodies;
    for (const Simulator::Event& One : Events("sel")) {
        Bodies.push_back(One.Fields.at("bytes"));
    }
    return Bodies;
}

bool BootedSimulation::Traced(std::string_view Text) {
    return Running.TraceLog().find(Text) != std::string::npos;
}

std::vector<std::string> BootedSimulation::Kinds(std::initializer_list<std::string_view> Leave) {
    std::vector<std::string> Names;
    const EventList& All = Running.Events().Events();
    for (std::size_t Index = Seen; Index < All.size(); Index++) {
        if (std::find(Leave.begin(), Leave.end(), All[Index].Kind) == Leave.end()) {
            Names.push_back(All[Index].Kind);
        }
    }
    return Names;
}

void BootedSimulation::Fail(const Simulator::MachineCheck& Error) {
    Running.InjectMachineCheck(Error);
    Running.RaiseSmi("machine-check");
}

::testing::AssertionResult BytesAre(const std::vector<std::uint8_t>& Bytes, std::string_view Expected,
                                    std::size_t Offset) {
    std::istringstream Words{std::string(Expected)};
    std::string Word;
    std::size_t Index = Offset;
    for (; Words >> Word; Index++) {
        if (Index >= Bytes.size()) {
            return ::testing::AssertionFailure() << fmt::format("ends after {} bytes", Bytes.size());
        }
        if (Word != ".." && fmt::format("{:02X}", Bytes[Index]) != Word) {
            return ::testing::AssertionFailure()
                   << fmt::format("byte {} is {:02X}, expected {}", Index, Bytes[Index], Word);
        }
    }
    return ::testing::AssertionSuccess();
}

Simulator::Configuration DiagnosticConfiguration() {
    Simulator::Configuration Settings;
    Settings.Attributes["CorErrLoggingThreshold"] = "Disabled";
    return Settings;
}
