// A command mailbox of a CXL memory device (CXL 3.0, section 8.2.8.4).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "Include/CxlRegisters.h"

namespace Simulator {

class CxlMailbox {
 public:
    struct Answer {
        std::uint16_t ReturnCode = CxlMbSuccess;
        std::vector<std::uint8_t> Output;  // as long as the payload at most
    };
    using Execute = std::function<Answer(std::uint16_t Opcode, const std::vector<std::uint8_t>& Input)>;
    using Clock = std::function<std::uint64_t()>;  // virtual microseconds

    CxlMailbox(unsigned PayloadExponent, std::uint64_t CommandTime, Clock Now, Execute Run);

    std::uint64_t Bytes() const {
        return CXL_MAILBOX_PAYLOAD + PayloadSize();
    }
    std::size_t PayloadSize() const {
        return Payload.size();
    }
    std::uint32_t Read(std::uint64_t Offset);
    void Write(std::uint64_t Offset, std::uint32_t Value);

    // Somebody else's command runs until then.
    void Occupy(std::uint64_t Until);
    // The device never ends the next command.
    void Hang() {
        HangsNext = true;
    }
    // The next Times commands with that opcode are not carried out but for one whose length alone is a lie, and
    // return this.
    struct Refusal {
        std::optional<std::uint16_t> ReturnCode{};  // an internal error, or success where there is an output
        std::uint64_t Times = 1;
        std::uint64_t Skip = 0;
        std::optional<std::uint32_t> ToldLength{};          // instead of the output's
        std::optional<std::vector<std::uint8_t>> Output{};  // what the device has taken for an answer
    };
    void Refuse(std::uint16_t Opcode, const Refusal& How) {
        Refusals[Opcode] = How;
    }
    // Do is called once, when a command with that opcode is about to be carried out: the doorbell has just been set.
    void WhenSent(std::uint16_t Opcode, std::function<void()> Do) {
        Watched[Opcode] = std::move(Do);
    }
    // What the background status register and bit 0 of the status show.
    void ShowBackground(bool IsRunning, std::uint64_t Register) {
        BackgroundRuns = IsRunning;
        Background = Register;
    }
    std::uint64_t Commands() const {
        return Done;
    }

 private:
    bool IsBusy();
    void Finish();
    Answer RunOrRefuse(std::uint16_t Opcode, const std::vector<std::uint8_t>& Input);

    std::uint64_t CommandTime;
    Clock Now;
    Execute Run;
    std::vector<std::uint8_t> Payload;
    std::uint64_t Command = 0;
    std::uint64_t Status = 0;
    std::uint64_t Background = 0;
    bool BackgroundRuns = false;
    bool Doorbell = false;
    bool IsForeign = false;  // the running command is somebody else's
    bool HangsNext = false;
    std::uint64_t EndsAt = 0;
    std::uint64_t Done = 0;
    std::map<std::uint16_t, Refusal> Refusals;
    std::map<std::uint16_t, std::function<void()>> Watched;
    std::optional<std::uint32_t> ToldLength;
};

}  // namespace Simulator
