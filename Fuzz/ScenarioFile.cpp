// Any text as a scenario file: it is refused with a place in the file, or it runs.
#include <exception>
#include <string>

#include "Fuzz/Property.h"
#include "Simulator/Scenario/Runner.h"
#include "Simulator/Scenario/SourcePosition.h"

namespace {

// What a mutated number can make long: rounds and waits are the scenario's own affair.
constexpr std::size_t LONGEST = 8192;
constexpr std::size_t MOST_STEPS = 40;

bool IsQuick(const Simulator::Scenario& What) {
    const Simulator::Configuration& Machine = What.Machine;
    for (const Simulator::Step& One : What.Steps) {
        if (One.Kind == "repeat" || One.Kind == "silent") {
            return false;
        }
    }
    return What.Steps.size() <= MOST_STEPS && Machine.SilentProcessors.empty() &&
           Machine.Sockets * Machine.CoresPerSocket * Machine.ThreadsPerCore <= 64;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* Data, std::size_t Size) {
    if (Size > LONGEST) {
        return 0;
    }
    const std::string Text(reinterpret_cast<const char*>(Data), Size);
    try {
        const Simulator::Scenario What = Simulator::ParseScenario(Text, "fuzz.yaml");
        MustHold(!What.Name.empty(), "a scenario has a name");
        if (IsQuick(What)) {
            Simulator::RunScenario(What);
        }
    } catch (const Simulator::ScenarioError& Error) {
        MustHold(std::string(Error.what()).rfind("fuzz.yaml", 0) == 0, "a refusal names the file");
    }
    return 0;
}
