// The vendor's event log services, as far as a test of the event log needs them: a store and a wire.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "Library/VornElogChipsetLib/SelTransport.h"
#include "Platform/Guids.h"
#include "Simulator/Simulation.h"
#include "Tests/Support/FakeServices.h"
#include "Tests/Support/HexText.h"

using Bodies = std::vector<std::string>;

class VornElogChipset : public testing::Test {
 protected:
    VornElogChipset() {
        Current = this;
        mPrivateDataVornElogIpmi = {};
        Services.Install(gVornElogIpmiSmmProtocolGuid, &Ipmi);
        Services.Install(gVornSmmSelRecordProtocolGuid, &SelRecords);
        Services.Install(gVornSmmIpmiSelSupportProtocolGuid, &SelSupport);
        Services.Install(gVornMemoryInterfaceMemorySmmProtocolGuid, &MemoryInterface);
        Array.NumDimmSlot = 5;
        Array.DimmMap = Dimms;
        Ipmi.LogBmcData = [](const ELOG_SEL_DATA* Body) {
            Current->Store.push_back(*Body);
            return Current->Called("log");
        };
        SelRecords.GetSelRecords = [](const VORN_SMM_SEL_RECORD_PROTOCOL* This, UINT8* Count,
                                      ELOG_SEL_DATA** Records) {
            EXPECT_EQ(&Current->SelRecords, This);
            *Count = static_cast<UINT8>(Current->Store.size());
            *Records = Current->HasStore ? Current->Store.data() : nullptr;
            return Current->Called("get");
        };
        SelRecords.DisplaySelRecords = [](const VORN_SMM_SEL_RECORD_PROTOCOL*) { return Current->Called("display"); };
        SelRecords.ClearSelRecords = [](const VORN_SMM_SEL_RECORD_PROTOCOL*) {
            Current->Store.clear();
            return Current->Called("clear");
        };
        SelSupport.SendConsolidatedOemCommand = [](const VORN_SMM_IPMI_SEL_SUPPORT_PROTOCOL* This, UINT8 Count,
                                                   const ELOG_SEL_DATA* Records) {
            EXPECT_EQ(&Current->SelSupport, This);
            const EFI_STATUS Status = Current->Called("send");
            if (!EFI_ERROR(Status)) {
                Current->Sent.insert(Current->Sent.end(), Records, Records + Count);
            }
            return Status;
        };
        MemoryInterface.GetMemoryArrayPtr = [](VORN_MEMORY_ARRAY** MemoryArray) {
            *MemoryArray = &Current->Array;
            return Current->Called("array");
        };
        Store.reserve(256);  // a store has an address even when it is empty
    }
    ~VornElogChipset() override {
        mPrivateDataVornElogIpmi = {};
        Current = nullptr;
    }

    EFI_STATUS Called(const std::string& Member) {
        Calls += Calls.empty() ? Member : " " + Member;
        const auto Failing = Failures.find(Member);
        return Failing == Failures.end() ? EFI_SUCCESS : Failing->second;
    }
    static Bodies Texts(const std::vector<ELOG_SEL_DATA>& Events) {
        Bodies Result;
        for (const ELOG_SEL_DATA& Event : Events) {
            Result.push_back(HexText(&Event, sizeof(Event)));
        }
        return Result;
    }
    // What was stored since the last call.
    Bodies Take() {
        const Bodies Result = Texts(Store);
        Store.clear();
        return Result;
    }

    Simulator::Simulation Machine{Simulator::Configuration{}};
    FakeServices Services;
    std::map<std::string, EFI_STATUS> Failures;
    std::string Calls;
    bool HasStore = true;
    std::vector<ELOG_SEL_DATA> Store;
    std::vector<ELOG_SEL_DATA> Sent;
    DIMM_MAP_ENTRY Dimms[5] = {{0, 0, 0, 0, {}, u"A1"},
                               {1, 11, 0, 0, {}, u"A12"},
                               {1, 11, 0, 1, {}, nullptr},
                               {0, 3, 0, 1, {}, u"B"},
                               {1, 2, 0, 0, {}, u"CfX9"}};
    VORN_MEMORY_ARRAY Array{};
    VORN_ELOG_IPMI_SMM_PROTOCOL Ipmi{};
    VORN_SMM_SEL_RECORD_PROTOCOL SelRecords{};
    VORN_SMM_IPMI_SEL_SUPPORT_PROTOCOL SelSupport{};
    VORN_MEMORY_INTERFACE_SMM_PROTOCOL MemoryInterface{};

 private:
    static inline VornElogChipset* Current = nullptr;
};
