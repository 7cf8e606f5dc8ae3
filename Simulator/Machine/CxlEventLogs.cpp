#include "Simulator/Machine/CxlEventLogs.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Simulator {

bool CxlEventLog::Add(CXL_EVENT_RECORD Record, std::uint64_t Time) {
    const bool WasEmpty = Records.empty();
    if (Records.size() >= Capacity) {
        FirstOverflow = OverflowErrors == 0 ? Time : FirstOverflow;
        LastOverflow = Time;
        OverflowErrors = static_cast<std::uint16_t>(std::min(OverflowErrors + 1, 0xFFFF));
        return false;
    }
    do {
        LastHandle = LastHandle == 0xFFFF ? 1 : static_cast<std::uint16_t>(LastHandle + 1);
    } while (std::ranges::any_of(Records, [&](const auto& One) { return One.Handle == LastHandle; }));
    Record.Handle = LastHandle;
    Record.TimeStamp = Time;
    Records.push_back(Record);
    return WasEmpty;
}

std::vector<std::uint8_t> CxlEventLog::Get(std::size_t PayloadSize) const {
    CXL_GET_EVENT_RECORDS_OUTPUT Front{};
    const std::size_t Fit = (PayloadSize - sizeof(Front)) / sizeof(CXL_EVENT_RECORD);
    const std::size_t Count = std::min(Records.size(), Fit);
    Front.Flags = static_cast<std::uint8_t>(CxlGetEventRecordsFlags::Overflow::Of(OverflowErrors != 0) |
                                            CxlGetEventRecordsFlags::MoreEventRecords::Of(Count < Records.size()));
    Front.OverflowErrorCount = OverflowErrors;
    Front.FirstOverflowTimeStamp = FirstOverflow;
    Front.LastOverflowTimeStamp = LastOverflow;
    Front.EventRecordCount = static_cast<std::uint16_t>(Count);
    std::vector<std::uint8_t> Output(sizeof(Front) + Count * sizeof(CXL_EVENT_RECORD));
    std::memcpy(Output.data(), &Front, sizeof(Front));
    for (std::size_t Index = 0; Index < Count; Index++) {
        std::memcpy(Output.data() + sizeof(Front) + Index * sizeof(CXL_EVENT_RECORD), &Records[Index],
                    sizeof(CXL_EVENT_RECORD));
    }
    return Output;
}

std::uint16_t CxlEventLog::Clear(std::uint8_t Flags, const std::vector<std::uint16_t>& Handles) {
    if (CxlClearEventRecordsFlags::ClearAllEvents::Get(Flags) != 0) {
        if (OverflowErrors == 0) {
            return CxlMbInvalidInput;
        }
        Records.clear();
    } else {
        // An older record that would stay makes the whole command fail.
        if (Handles.size() > Records.size()) {
            return CxlMbInvalidHandle;
        }
        for (std::size_t Index = 0; Index < Handles.size(); Index++) {
            if (Records[Index].Handle != Handles[Index]) {
                return CxlMbInvalidHandle;
            }
        }
        Records.erase(Records.begin(), Records.begin() + static_cast<std::ptrdiff_t>(Handles.size()));
    }
    if (Records.size() < Capacity) {
        OverflowErrors = 0;
        FirstOverflow = LastOverflow = 0;
    }
    return CxlMbSuccess;
}

CxlEventLogs::CxlEventLogs(std::size_t Capacity, std::function<void(unsigned, unsigned)> Notify)
    : Logs(CXL_EVENT_LOGS, CxlEventLog(Capacity)), Notify(std::move(Notify)) {}

void CxlEventLogs::Add(const CXL_EVENT_RECORD& Record, std::uint64_t Time) {
    const unsigned Log = CxlEventFlags::Severity::Get(Record.Flags[0]);
    if (!Logs[Log].Add(Record, Time)) {
        return;
    }
    const unsigned Mode = CxlEventInterruptSetting::Mode::Get(InterruptPolicy.Settings[Log]);
    if (Mode != CxlEventInterruptSetting::NoInterrupts) {
        Notify(Log, Mode);
    }
}

std::uint64_t CxlEventLogs::Status() const {
    std::uint64_t Value = 0;
    for (unsigned Log = 0; Log < CXL_EVENT_LOGS; Log++) {
        Value |= static_cast<std::uint64_t>(!Logs[Log].IsEmpty()) << Log;
    }
    return Value;
}

std::uint16_t CxlEventLogs::SetPolicy(const CXL_EVENT_INTERRUPT_POLICY& Wanted) {
    for (const std::uint8_t Setting : Wanted.Settings) {
        if (CxlEventInterruptSetting::Mode::Get(Setting) > CxlEventInterruptSetting::Firmware) {
            return CxlMbInvalidInput;
        }
    }
    InterruptPolicy = Wanted;
    return CxlMbSuccess;
}

}  // namespace Simulator
