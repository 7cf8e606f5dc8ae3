// Which record the storm check has before it: its kind and the function that it is about.
#pragma once

#include "Library/VornElogPolicyLib/Storm/StormQueue.h"

enum STORM_RECORD_KIND : UINT8 {
    StormRecordOther,
    StormRecordMachineCheck,  // platform memory, generic processor, x86 processor-specific
    StormRecordPcie,
    StormRecordCxlProtocol,
    StormRecordCxlComponent,
    StormRecordPciComponent,
};

// By the section type. The record must hold its front.
STORM_RECORD_KIND StormSectionKind(const EFI_GUID& SectionType);
STORM_RECORD_KIND StormRecordKind(const CPER_RECORD* pCper);

// The function that the entry's record names; zeros when it names none.
PCI_SBDF StormEntryFunction(const SMI_STORM_QUEUE_ENTRY& Entry);

// Severity of the event in a CXL component event entry, a CXL_EVENT_LOG.
UINT8 StormEntryEventSeverity(const SMI_STORM_QUEUE_ENTRY& Entry);
