#include "Simulator/Firmware/EventLog.h"

#include <algorithm>

#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/Names.h"
#include "Simulator/Firmware/SelMessage.h"
#include "Simulator/Firmware/ServiceTables.h"
#include "Simulator/Firmware/UnderSanitizer.h"

namespace Simulator {

namespace {

constexpr std::uint8_t SEL_RECORD_TYPE_SYSTEM_EVENT = 0x02;
// The BMC writes the records itself and owns the sensors that they name: its slave address, LUN 0.
constexpr std::uint16_t SEL_GENERATOR_ID = 0x0020;
constexpr std::uint8_t SEL_EVM_REVISION = 0x04;  // IPMI 1.5 and later

}  // namespace

EventLog::EventLog(Machine& Machine) : Hardware(Machine) {}

EFI_STATUS EventLog::LogBmcData(const ELOG_SEL_DATA* Body) {
    if (Body == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    Store.push_back(*Body);
    Hardware.Note("sel", [&] {
        nlohmann::ordered_json Fields{{"bytes", HexBytes(Body, sizeof(*Body))}};
        const std::string Id = SelMessageId(*Body);
        if (!Id.empty()) {
            Fields["id"] = Id;
        }
        return Fields;
    });
    return EFI_SUCCESS;
}

// The area holds the number of codes in a byte, then the codes. The service is not told where the caller's buffer
// ends and believes the number: the region goes on behind the buffer.
READS_FORBIDDEN EFI_STATUS EventLog::GetPostMessageCodes(const void* MessageCodeArea) {
    if (MessageCodeArea == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    const auto* Area = static_cast<const volatile std::uint8_t*>(MessageCodeArea);
    PostCodes.resize(Area[0]);
    for (std::size_t Index = 0; Index < PostCodes.size(); Index++) {
        PostCodes[Index] = Area[1 + Index];
    }
    return EFI_SUCCESS;
}

EFI_STATUS EventLog::GetBmcErrorCount(UINT16* Count) const {
    if (Count == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    *Count = PostErrors;
    return EFI_SUCCESS;
}

EFI_STATUS EventLog::SendBmcData() {
    Hardware.Note("post-errors", [&] {
        return nlohmann::ordered_json{{"count", Hex(PostErrors)},
                                      {"codes", HexBytes(PostCodes.data(), PostCodes.size())}};
    });
    PostErrors = 0;
    PostCodes.clear();
    return EFI_SUCCESS;
}

EFI_STATUS EventLog::GetSelRecords(UINT8* Count, ELOG_SEL_DATA** Records) {
    // An empty store still has an address: an empty log is not a missing one.
    static ELOG_SEL_DATA Nothing{};
    if (Count == nullptr || Records == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    HandedOut = std::min<std::size_t>(Store.size(), UINT8_MAX);
    *Count = static_cast<UINT8>(HandedOut);
    *Records = Store.empty() ? &Nothing : Store.data();
    return EFI_SUCCESS;
}

EFI_STATUS EventLog::ClearSelRecords() {
    const auto Dropped = std::min(HandedOut, Store.size());
    Store.erase(Store.begin(), Store.begin() + static_cast<std::ptrdiff_t>(Dropped));
    HandedOut = 0;
    return EFI_SUCCESS;
}

EFI_STATUS EventLog::SendConsolidated(UINT8 Count, const ELOG_SEL_DATA* Records) {
    if (Records == nullptr || Count == 0) {
        return EFI_INVALID_PARAMETER;
    }
    const auto TimeStamp = static_cast<std::uint32_t>(Hardware.Clock().SecondsSinceEpoch(Hardware.Now()));
    for (UINT8 Index = 0; Index < Count; Index++) {
        Sel.push_back({TimeStamp, Records[Index]});
    }
    return EFI_SUCCESS;
}

EFI_STATUS EventLog::LogMemoryHealthData(const VORN_MEMORY_HEALTH_REQUEST* Request, UINTN PayloadSize) {
    if (Request == nullptr || Request->Payload == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    Hardware.Note("health", [&] {
        return nlohmann::ordered_json{{"kind", Hex(Request->EventKind)},
                                      {"bytes", HexBytes(Request->Payload, PayloadSize)}};
    });
    return EFI_SUCCESS;
}

std::vector<std::uint8_t> EventLog::SelRaw() const {
    std::vector<std::uint8_t> Raw;
    Raw.reserve(Sel.size() * 16);
    const auto Put = [&Raw](std::uint64_t Value, unsigned Bytes) {
        for (unsigned Index = 0; Index < Bytes; Index++) {
            Raw.push_back(static_cast<std::uint8_t>(Value >> 8 * Index));
        }
    };
    std::uint16_t RecordId = 0;
    for (const SelRecord& One : Sel) {
        Put(++RecordId, 2);
        Put(SEL_RECORD_TYPE_SYSTEM_EVENT, 1);
        Put(One.TimeStamp, 4);
        Put(SEL_GENERATOR_ID, 2);
        Put(SEL_EVM_REVISION, 1);
        const auto* Body = reinterpret_cast<const std::uint8_t*>(&One.Body);
        Raw.insert(Raw.end(), Body, Body + sizeof(One.Body));
    }
    return Raw;
}

namespace {

EventLog& Log() {
    return Firmware::Current().Events;
}

EFI_STATUS ServeSend(UINT8 Count, const ELOG_SEL_DATA* Records) {
    const EFI_STATUS Status =
        Serve(Member::SendConsolidatedOemCommand, [&] { return Log().SendConsolidated(Count, Records); });
    Firmware::Current().Hardware.Note("sel-send", [&] {
        return nlohmann::ordered_json{{"count", Hex(Count)}, {"status", StatusName(Status)}};
    });
    return Status;
}

}  // namespace

VORN_ELOG_IPMI_SMM_PROTOCOL* ElogIpmiTable() {
    static VORN_ELOG_IPMI_SMM_PROTOCOL Table{
        [](const ELOG_SEL_DATA* Body) { return Serve(Member::LogBmcData, [&] { return Log().LogBmcData(Body); }); },
        [](const void* Area) {
            return Serve(Member::GetPostMessageCodes, [&] { return Log().GetPostMessageCodes(Area); });
        },
        [] { return Serve(Member::GetIpmiTransportProtocol, [] { return EFI_SUCCESS; }); },
        [](UINT16* Count) { return Serve(Member::GetBmcErrorCount, [&] { return Log().GetBmcErrorCount(Count); }); },
        [] { return Serve(Member::SendBmcData, [] { return Log().SendBmcData(); }); },
        [](const VORN_MEMORY_HEALTH_REQUEST* Request, UINTN PayloadSize) {
            return Serve(Member::LogMemoryHealthData,
                         [&] { return Log().LogMemoryHealthData(Request, PayloadSize); });
        },
    };
    return &Table;
}

VORN_SMM_SEL_RECORD_PROTOCOL* SelRecordTable() {
    static VORN_SMM_SEL_RECORD_PROTOCOL Table{
        {},
        [](const VORN_SMM_SEL_RECORD_PROTOCOL*, UINT8* Count, ELOG_SEL_DATA** Records) {
            return Serve(Member::GetSelRecords, [&] { return Log().GetSelRecords(Count, Records); });
        },
        [](const VORN_SMM_SEL_RECORD_PROTOCOL*) {
            return Serve(Member::ClearSelRecords, [] { return Log().ClearSelRecords(); });
        },
        [](const VORN_SMM_SEL_RECORD_PROTOCOL*) {
            return Serve(Member::DisplaySelRecords, [] { return EFI_SUCCESS; });
        },
    };
    return &Table;
}

VORN_SMM_IPMI_SEL_SUPPORT_PROTOCOL* SelSupportTable() {
    static VORN_SMM_IPMI_SEL_SUPPORT_PROTOCOL Table{
        nullptr,
        [](const VORN_SMM_IPMI_SEL_SUPPORT_PROTOCOL*, UINT8 Count, const ELOG_SEL_DATA* Records) {
            return ServeSend(Count, Records);
        },
    };
    return &Table;
}

}  // namespace Simulator
