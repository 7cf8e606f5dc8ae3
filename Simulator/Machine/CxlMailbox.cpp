#include "Simulator/Machine/CxlMailbox.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace Simulator {

namespace {

// Half of a register of 64 bits.
std::uint32_t Half(std::uint64_t Register, std::uint64_t Offset) {
    return static_cast<std::uint32_t>(Register >> 8 * (Offset % 8));
}

void SetHalf(std::uint64_t& Register, std::uint64_t Offset, std::uint32_t Value) {
    const unsigned Shift = 8 * static_cast<unsigned>(Offset % 8);
    Register = (Register & ~(std::uint64_t{UINT32_MAX} << Shift)) | std::uint64_t{Value} << Shift;
}

}  // namespace

CxlMailbox::CxlMailbox(unsigned PayloadExponent, std::uint64_t CommandTime, Clock Now, Execute Run)
    : CommandTime(CommandTime),
      Now(std::move(Now)),
      Run(std::move(Run)),
      Payload(std::size_t{1} << PayloadExponent) {}

bool CxlMailbox::IsBusy() {
    if (Doorbell && Now() >= EndsAt) {
        Finish();
    }
    return Doorbell;
}

void CxlMailbox::Occupy(std::uint64_t Until) {
    Doorbell = true;
    IsForeign = true;
    EndsAt = Until;
}

CxlMailbox::Answer CxlMailbox::RunOrRefuse(std::uint16_t Opcode, const std::vector<std::uint8_t>& Input) {
    ToldLength.reset();
    const auto Found = Refusals.find(Opcode);
    if (Found == Refusals.end()) {
        return Run(Opcode, Input);
    }
    Refusal& How = Found->second;
    if (How.Skip > 0) {
        How.Skip--;
        return Run(Opcode, Input);
    }
    const Refusal Now = How;
    if (--How.Times == 0) {
        Refusals.erase(Found);
    }
    ToldLength = Now.ToldLength;
    if (Now.Output) {
        std::vector<std::uint8_t> Output = *Now.Output;
        Output.resize(std::min(Output.size(), Payload.size()));
        return {Now.ReturnCode.value_or(CxlMbSuccess), std::move(Output)};
    }
    return Now.ToldLength ? Run(Opcode, Input) : Answer{Now.ReturnCode.value_or(CxlMbInternalError), {}};
}

void CxlMailbox::Finish() {
    Doorbell = false;
    if (IsForeign) {
        IsForeign = false;
        return;
    }
    const auto Length = static_cast<std::size_t>(CxlMailboxCommand::PayloadLength::Get(Command));
    const auto Opcode = static_cast<std::uint16_t>(CxlMailboxCommand::Opcode::Get(Command));
    Answer Result;
    if (Length > Payload.size()) {
        Result.ReturnCode = CxlMbInvalidPayloadLength;
    } else {
        Result = RunOrRefuse(Opcode, {Payload.begin(), Payload.begin() + static_cast<std::ptrdiff_t>(Length)});
    }
    Done++;
    if (!Result.Output.empty()) {
        std::memcpy(Payload.data(), Result.Output.data(), Result.Output.size());
    }
    Command = CxlMailboxCommand::PayloadLength::Set(Command, ToldLength.value_or(Result.Output.size()));
    Status = CxlMailboxStatus::ReturnCode::Of(Result.ReturnCode);
}

std::uint32_t CxlMailbox::Read(std::uint64_t Offset) {
    const bool Busy = IsBusy();
    switch (Offset & ~std::uint64_t{7}) {
        case CXL_MAILBOX_CAPABILITIES:
            if (Offset == CXL_MAILBOX_CONTROL) {
                return CxlMailboxControl::Doorbell::Of(Busy);
            }
            return CxlMailboxCapabilities::PayloadSize::Of(
                static_cast<std::uint32_t>(std::countr_zero(Payload.size())));
        case CXL_MAILBOX_COMMAND:
            return Half(Command, Offset);
        case CXL_MAILBOX_STATUS:
            return Half(CxlMailboxStatus::BackgroundOperation::Set(Status, BackgroundRuns), Offset);
        case CXL_MAILBOX_BACKGROUND_COMMAND_STATUS:
            return Half(Background, Offset);
        default: {
            std::uint32_t Value = 0;
            if (const std::uint64_t At = Offset - CXL_MAILBOX_PAYLOAD; At + sizeof(Value) <= Payload.size()) {
                std::memcpy(&Value, Payload.data() + At, sizeof(Value));
            }
            return Value;
        }
    }
}

void CxlMailbox::Write(std::uint64_t Offset, std::uint32_t Value) {
    if (IsBusy()) {
        return;  // the device owns its registers while the doorbell is set
    }
    if (Offset == CXL_MAILBOX_CONTROL) {
        if (CxlMailboxControl::Doorbell::Get(Value) != 0) {
            Doorbell = true;
            EndsAt = HangsNext ? UINT64_MAX : Now() + CommandTime;
            HangsNext = false;
            if (const auto Seen =
                    Watched.extract(static_cast<std::uint16_t>(CxlMailboxCommand::Opcode::Get(Command)))) {
                Seen.mapped()();
            }
        }
    } else if ((Offset & ~std::uint64_t{7}) == CXL_MAILBOX_COMMAND) {
        SetHalf(Command, Offset, Value);
    } else if (const std::uint64_t At = Offset - CXL_MAILBOX_PAYLOAD;
               Offset >= CXL_MAILBOX_PAYLOAD && At + sizeof(Value) <= Payload.size()) {
        std::memcpy(Payload.data() + At, &Value, sizeof(Value));
    }
}

}  // namespace Simulator
