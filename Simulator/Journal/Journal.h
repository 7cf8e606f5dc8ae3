// What left the driver, in order: one event a thing.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace Simulator {

struct Event {
    std::string Kind;
    int Step = -1;           // index of the scenario's step; -1 at boot
    std::uint64_t Time = 0;  // virtual microseconds
    nlohmann::ordered_json Fields;
};

// "0x" and upper-case digits, as few as the value needs.
std::string Hex(std::uint64_t Value);
// Spaced upper-case bytes: "07 3C 6F".
std::string HexBytes(const void* Data, std::size_t Size);

class Journal {
 public:
    // While recording is off nothing is kept; whoever adds events asks first and spares making their fields.
    void SetRecording(bool On) {
        Recording = On;
    }
    bool IsRecording() const {
        return Recording;
    }
    void SetStep(int Index) {
        Step = Index;
    }
    void Add(std::string_view Kind, std::uint64_t Time, nlohmann::ordered_json Fields);
    const std::vector<Event>& Events() const {
        return Kept;
    }
    // One JSON object a line, fields in the order event, step, time, then the kind's own.
    std::string ToJsonLines() const;

 private:
    bool Recording = true;
    int Step = -1;
    std::vector<Event> Kept;
};

}  // namespace Simulator
