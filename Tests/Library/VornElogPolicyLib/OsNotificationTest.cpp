// GHES records and containment.
#include "Library/VornElogPolicyLib/Notification/OsNotification.h"

#include <gtest/gtest.h>

#include "Library/VornElogPolicyLib/Notification/Cleanup.h"
#include "Tests/Library/VornElogPolicyLib/PolicyMachine.h"

static EFI_STATUS Notify(TestRecord& Record, UINT32 SciCause = 0x20000000, UINT32 Severity = 2) {
    return VornElogSmmOsErrorNotification(Record.Cper(), &Record.Data, Severity, SciCause);
}

TEST(OsNotification, AContainedPortWhoseOsRecoversItGoesWithoutGhes) {
    struct Case {
        EFI_GUID Type;
        UINT8 DpcEvent;
        UINT8 DpcOsLoaded;
        bool IsLogged;
    };
    for (const Case& Test :
         {Case{gCperSectionPcieGuid, 1, 1, false}, Case{gCperSectionPciComponentGuid, 1, 1, false},
          Case{gCperSectionPcieGuid, 1, 0, true}, Case{gCperSectionPcieGuid, 0, 1, true},
          // The same two bytes of a machine check say something else.
          Case{gCperSectionProcessorSpecificGuid, 1, 1, true}, Case{gCperSectionCxlProtocolGuid, 1, 1, true}}) {
        PolicyMachine Machine;
        TestRecord Record(Test.Type, CperSeverityFatal, 208);
        Record.Data.Pci.DpcEvent = Test.DpcEvent;
        Record.Data.Pci.DpcOsLoaded = Test.DpcOsLoaded;
        EXPECT_EQ(Notify(Record, 0x40000000), EFI_SUCCESS);
        EXPECT_EQ(Machine.Sim.LoggedRecords().size(), Test.IsLogged ? 1u : 0u);
        EXPECT_EQ(ApeiSciCause, 0x40000000u);
    }
}

TEST(OsNotification, APageRetireRequestIsLoggedBesideTheRecord) {
    struct Case {
        UINT32 HeaderSeverity;
        UINT32 SciCause;
        UINT8 Socket;
        std::vector<std::string> Thresholds;
    };
    for (const Case& Test : {Case{2, 0x30000000, 1, {"0xC"}}, Case{1, 0x30000000, 1, {}}, Case{2, 0x20000000, 1, {}},
                             Case{2, 0x30000000, 2, {"0x0"}}}) {  // a record may name a DIMM that cannot be
        PolicyMachine Machine;
        Policy.MemErrLocation = {Test.Socket, 11, 1, 0};
        Policy.DimmData[1][11][1].CeccPfaData.SwThresholdCount = 103;
        MemoryRecord Record(0x02, 0x12345678, Test.HeaderSeverity);
        EXPECT_EQ(Notify(Record, Test.SciCause), EFI_SUCCESS);
        EXPECT_EQ(Machine.Events("page-retire", "threshold"), Test.Thresholds);
        EXPECT_EQ(Machine.Events("page-retire", "address", "0x12345678").size(), Test.Thresholds.size());
        EXPECT_EQ(Machine.Sim.LoggedRecords().size(), 1u);
    }
}

TEST(OsContainment, OnlyPcieAndCxlErrorsThatTheOsMustNotRunOnFromAskForAnNmi) {
    for (const auto& [Type, NmiSeverities] :
         {std::pair{gCperSectionPcieGuid, 2u}, std::pair{gCperSectionPciComponentGuid, 2u},
          std::pair{gCperSectionCxlProtocolGuid, 2u}, std::pair{gCperSectionProcessorSpecificGuid, 0u},
          std::pair{gCperSectionPlatformMemoryGuid, 0u}}) {
        PolicyMachine Machine;
        for (UINT32 Severity = 0; Severity < 4; Severity++) {
            Machine.Forget();
            TestRecord Record(Type, Severity, 208);
            Record.Data.Pci.DpcEvent = 1;  // no OS handles containment here
            EXPECT_EQ(VornElogSmmOsErrorContainment(Record.Cper(), &Record.Data), EFI_SUCCESS);
            Notify(Record);
            VornElogSmmPostProcessCleanup();
            const bool IsNmi = Severity < NmiSeverities;  // recoverable and fatal
            EXPECT_EQ(Machine.Events("nmi", "").size(), IsNmi ? 1u : 0u) << Severity;
            EXPECT_EQ(Machine.Events("sci", "cause").size(), IsNmi ? 0u : 1u) << Severity;
        }
        Machine.Fail("ElogSignalNmi");
        VornApeiIssueNmiFlag = TRUE;
        VornElogSmmPostProcessCleanup();
        EXPECT_TRUE(Machine.Traced("VornElogSmmIssueNmi: ERROR Device Error from ElogSignalNmi"));
        EXPECT_EQ(VornApeiIssueNmiFlag, FALSE);
    }
}
