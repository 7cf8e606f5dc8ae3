// The event logs of a CXL memory device (CXL 3.0, section 8.2.9.2).
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

#include "Include/CxlRegisters.h"

namespace Simulator {

// One log: records in the order in which they came, each with a handle that no other record in it has.
class CxlEventLog {
 public:
    explicit CxlEventLog(std::size_t Capacity) : Capacity(Capacity) {}

    // Stores the record under a handle of its own; counts an overflow instead where the log is full. True when the
    // log was empty before. Time: nanoseconds.
    bool Add(CXL_EVENT_RECORD Record, std::uint64_t Time);
    bool IsEmpty() const {
        return Records.empty();
    }
    std::size_t Size() const {
        return Records.size();
    }
    // Output of Get Event Records that fits into PayloadSize bytes: the oldest records.
    std::vector<std::uint8_t> Get(std::size_t PayloadSize) const;
    // Clear Event Records. CXL_MAILBOX_RETURN_CODE: Invalid Handle unless the handles are the oldest records' in
    // order, nothing is cleared then; Invalid Input for Clear All Events without an overflow.
    std::uint16_t Clear(std::uint8_t Flags, const std::vector<std::uint16_t>& Handles);

 private:
    std::size_t Capacity;
    std::deque<CXL_EVENT_RECORD> Records;
    std::uint16_t LastHandle = 0;
    std::uint16_t OverflowErrors = 0;
    std::uint64_t FirstOverflow = 0;
    std::uint64_t LastOverflow = 0;
};

// The four logs and who is told of what is in them.
class CxlEventLogs {
 public:
    // Notify: an empty log got a record and its setting asks for Mode (CxlEventInterruptSetting::MODE, not 0).
    CxlEventLogs(std::size_t Capacity, std::function<void(unsigned Log, unsigned Mode)> Notify);

    // An event happens in the device: goes into the log of its severity.
    void Add(const CXL_EVENT_RECORD& Record, std::uint64_t Time);
    // Event Status register.
    std::uint64_t Status() const;
    CxlEventLog& operator[](unsigned Log) {
        return Logs.at(Log);
    }
    const CXL_EVENT_INTERRUPT_POLICY& Policy() const {
        return InterruptPolicy;
    }
    // Invalid Input for a mode that does not exist.
    std::uint16_t SetPolicy(const CXL_EVENT_INTERRUPT_POLICY& Wanted);

 private:
    std::vector<CxlEventLog> Logs;
    CXL_EVENT_INTERRUPT_POLICY InterruptPolicy{};
    std::function<void(unsigned, unsigned)> Notify;
};

}  // namespace Simulator
