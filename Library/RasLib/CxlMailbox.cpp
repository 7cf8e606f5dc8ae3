#include "Library/RasLib/CxlMailbox.h"

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Hardware.h"

namespace {

constexpr UINT32 DOORBELL_POLLS = 2000;
constexpr UINT64 DOORBELL_POLL_MICROSECONDS = 1000;
constexpr UINT32 PAGE_SIZE = 0x1000;

bool WaitForDoorbellClear(UINT64 MailboxBase) {
    for (UINT32 Poll = 0; Poll < DOORBELL_POLLS; Poll++) {
        if (!CxlMailboxControl::Doorbell::Get(MmioRead32(MailboxBase + CXL_MAILBOX_CONTROL))) {
            return true;
        }
        MicroSecondDelay(DOORBELL_POLL_MICROSECONDS);
    }
    return false;
}

UINT32 PayloadSize(UINT64 MailboxBase) {
    const UINT32 CxlMbCap = MmioRead32(MailboxBase + CXL_MAILBOX_CAPABILITIES);
    return UINT32{1} << CxlMailboxCapabilities::PayloadSize::Get(CxlMbCap);
}

// Payload registers are doublewords; the last one is filled up with zeros.
void WritePayload(UINT64 MailboxBase, const UINT8* Payload, UINT32 Length) {
    for (UINT32 At = 0; At < Length; At += sizeof(UINT32)) {
        const UINT32 Left = Length - At;
        UINT32 Word = 0;
        CopyMem(&Word, Payload + At, Left < sizeof(Word) ? Left : sizeof(Word));
        MmioWrite32(MailboxBase + CXL_MAILBOX_PAYLOAD + At, Word);
    }
}

// Copies the answer into pages of its own. Its length is the device's word: it counts only up to the payload's size.
void ReadPayload(UINT64 MailboxBase, UINT32 PayloadLimit, UINT32* pOutputLength, void** ppOutputPayload) {
    const UINT32 Length =
        static_cast<UINT32>(CxlMailboxCommand::PayloadLength::Get(MmioRead64(MailboxBase + CXL_MAILBOX_COMMAND)));
    if (Length == 0) {
        return;
    }
    if (Length > PayloadLimit) {
        TraceAs("CxlMbCmdExecute", DEBUG_ERROR, "%a: ERROR output payload length 0x%08x > 0x%08x, output dropped\n",
                Length, PayloadLimit);
        return;
    }
    *pOutputLength = Length;
    const UINTN Pages = (UINTN{Length} + PAGE_SIZE - 1) / PAGE_SIZE;
    UINT8* Output = nullptr;
    const EFI_STATUS Status = AllocateRuntimeData(Pages * PAGE_SIZE, &Output);
    if (EFI_ERROR(Status)) {
        TraceAs("CxlMbCmdExecute", DEBUG_ERROR,
                "%a: ERROR %r allocating EfiRuntimeServicesData memory for output payload, aborting...\n", Status);
        return;
    }
    for (UINT32 At = 0; At < Length; At += sizeof(UINT32)) {
        const UINT32 Word = MmioRead32(MailboxBase + CXL_MAILBOX_PAYLOAD + At);
        CopyMem(Output + At, &Word, sizeof(Word));
    }
    *ppOutputPayload = Output;
}

const CHAR8* const RETURN_CODE_TEXTS[] = {
    "Success",
    "Background Command Started",
    "Invalid Input",
    "Unsupported",
    "Internal Error",
    "Retry Required",
    "Busy",
    "Media Disabled",
    "FW Transfer in Progress",
    "FW Transfer Out of Order",
    "FW Authentication Failed",
    "Invalid Slot",
    "Activation Failed, FW Rolled Back",
    "Activation Failed, Cold Reset Required",
    "Invalid Handle",
    "Invalid Physical Address",
    "Inject Poison Limit Reached",
    "Permanent Media Failure",
    "Aborted",
    "Invalid Security State",
    "Incorrect Passphrase",
    "Unsupported Mailbox",
    "Invalid Payload Length",
    "Invalid Log",
    "Interrupted",
    "Unsupported Feature Version",
    "Unsupported Feature Selection Value",
    "Feature Transfer in Progress",
    "Feature Transfer Out of Order",
    "Resources Exhausted",
    "Invalid Extent List",
};

}  // namespace

UINT16 CxlMbCmdExecute(UINT64 MailboxBase, UINT16 Opcode, const void* pInputPayload, UINT32 InputLength,
                       UINT32* pOutputLength, void** ppOutputPayload) {
    if (pOutputLength == nullptr || ppOutputPayload == nullptr || (pInputPayload == nullptr && InputLength != 0)) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return CxlMbInvalidInput;
    }
    *pOutputLength = 0;
    *ppOutputPayload = nullptr;

    if (!WaitForDoorbellClear(MailboxBase)) {
        Trace(DEBUG_ERROR, "%a: ERROR mailbox 0x%lx doorbell set, opcode 0x%04x not sent\n", MailboxBase, Opcode);
        return CxlMbBusy;
    }
    const UINT32 PayloadLimit = PayloadSize(MailboxBase);
    if (InputLength > PayloadLimit) {
        Trace(DEBUG_ERROR,
              "%a: ERROR command aborted, InPlLength 0x%08x > 0x%08x ((UINT32)(1 << CxlMbCap.Field.PayloadSize))\n",
              InputLength, PayloadLimit);
        return CxlMbInvalidInput;
    }
    MmioWrite64(MailboxBase + CXL_MAILBOX_COMMAND,
                CxlMailboxCommand::Opcode::Of(Opcode) | CxlMailboxCommand::PayloadLength::Of(InputLength));
    WritePayload(MailboxBase, static_cast<const UINT8*>(pInputPayload), InputLength);

    const UINT32 Control = MmioRead32(MailboxBase + CXL_MAILBOX_CONTROL);
    MmioWrite32(MailboxBase + CXL_MAILBOX_CONTROL, Control | CxlMailboxControl::Doorbell::Mask);
    if (!WaitForDoorbellClear(MailboxBase)) {
        Trace(DEBUG_ERROR, "%a: ERROR mailbox 0x%lx doorbell still set after opcode 0x%04x\n", MailboxBase, Opcode);
        return CxlMbBusy;
    }
    const UINT64 Status = MmioRead64(MailboxBase + CXL_MAILBOX_STATUS);
    const UINT16 ReturnCode = static_cast<UINT16>(CxlMailboxStatus::ReturnCode::Get(Status));
    if (ReturnCode == CxlMbSuccess) {
        ReadPayload(MailboxBase, PayloadLimit, pOutputLength, ppOutputPayload);
    }
    return ReturnCode;
}

const CHAR8* CxlMbReturnCodeText(UINT64 ReturnCode) {
    constexpr UINTN Known = sizeof(RETURN_CODE_TEXTS) / sizeof(RETURN_CODE_TEXTS[0]);
    return ReturnCode < Known ? RETURN_CODE_TEXTS[ReturnCode] : "unknown";
}
