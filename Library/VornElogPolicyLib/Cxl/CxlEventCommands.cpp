#include "Library/VornElogPolicyLib/Cxl/CxlEventCommands.h"

#include "Library/RasLib/CxlMailbox.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Hardware.h"

namespace {

struct COMMAND {
    UINT16 Opcode;
    const CHAR8* Name;
};
constexpr COMMAND GET_EVENT_RECORDS = {CxlMbOpGetEventRecords, "Get Event Records"};
constexpr COMMAND CLEAR_EVENT_RECORDS = {CxlMbOpClearEventRecords, "Clear Event Records"};
constexpr COMMAND GET_EVENT_INTERRUPT_POLICY = {CxlMbOpGetEventInterruptPolicy, "Get Event Interrupt Policy"};
constexpr COMMAND SET_EVENT_INTERRUPT_POLICY = {CxlMbOpSetEventInterruptPolicy, "Set Event Interrupt Policy"};

constexpr UINT32 HANDLES_PER_COMMAND = 255;  // the command counts them in a byte

struct CLEAR_COMMAND_INPUT {
    CXL_CLEAR_EVENT_RECORDS_INPUT Front;
    UINT16 Handles[HANDLES_PER_COMMAND];
};
static_assert(offsetof(CLEAR_COMMAND_INPUT, Handles) == sizeof(CXL_CLEAR_EVENT_RECORDS_INPUT));

struct RETURN_CODE_STATUS {
    UINT16 ReturnCode;
    EFI_STATUS Status;
};
constexpr RETURN_CODE_STATUS RETURN_CODE_STATUSES[] = {
    {CxlMbInvalidInput, EFI_INVALID_PARAMETER}, {CxlMbUnsupported, EFI_UNSUPPORTED},
    {CxlMbRetryRequired, EFI_NOT_READY},        {CxlMbBusy, EFI_TIMEOUT},
    {CxlMbMediaDisabled, EFI_NOT_READY},        {CxlMbInvalidHandle, EFI_NOT_FOUND},
    {CxlMbUnsupportedMailbox, EFI_UNSUPPORTED}, {CxlMbInvalidPayloadLength, EFI_BAD_BUFFER_SIZE},
    {CxlMbInvalidLog, EFI_NOT_FOUND},
};

EFI_STATUS StatusOfReturnCode(UINT64 MbCmdStatus) {
    for (const RETURN_CODE_STATUS& Entry : RETURN_CODE_STATUSES) {
        if (Entry.ReturnCode == MbCmdStatus) {
            return Entry.Status;
        }
    }
    return EFI_DEVICE_ERROR;
}

bool IsEventLog(UINT8 EventLog) {
    return EventLog < CXL_EVENT_LOGS;
}

// An answer that the command's caller owns.
struct ANSWER {
    UINT32 Length;
    void* Payload;
};

// Runs a command whose answer must have at least LeastOutput bytes. *pAnswer holds a block only on success.
EFI_STATUS RunCommand(const PCI_DEVICE_STATE* pPciDeviceState, const COMMAND& Command, const void* pInput,
                      UINT32 InputLength, UINT32 LeastOutput, ANSWER* pAnswer, const CHAR8* Caller) {
    const UINT64 MbCmdStatus = VornElogCxlChipsetExecuteMbCmd(pPciDeviceState, Command.Opcode, pInput, InputLength,
                                                              &pAnswer->Length, &pAnswer->Payload);
    EFI_STATUS Status = EFI_SUCCESS;
    if (MbCmdStatus != CxlMbSuccess) {
        Status = StatusOfReturnCode(MbCmdStatus);
    } else if (pAnswer->Length != 0 && pAnswer->Payload == nullptr) {
        Status = EFI_OUT_OF_RESOURCES;
    } else if (pAnswer->Length < LeastOutput) {
        Status = EFI_DEVICE_ERROR;
    }
    if (!EFI_ERROR(Status)) {
        return EFI_SUCCESS;
    }
    if (pAnswer->Payload != nullptr) {
        FreeRuntimeData(pAnswer->Payload);
    }
    *pAnswer = {};
    TraceAs(Caller, DEBUG_ERROR,
            "%a: ERROR MbCmdStatus 0x%016lx (%a) from CXL mb cmd %a (Opcode 0x%04x), returning EFI_STATUS %r...\n",
            MbCmdStatus, CxlMbReturnCodeText(MbCmdStatus), Command.Name, Command.Opcode, Status);
    return Status;
}

// A command whose answer, if the device gives one, says nothing.
EFI_STATUS RunSilentCommand(const PCI_DEVICE_STATE* pPciDeviceState, const COMMAND& Command, const void* pInput,
                            UINT32 InputLength, const CHAR8* Caller) {
    ANSWER Answer = {};
    const EFI_STATUS Status = RunCommand(pPciDeviceState, Command, pInput, InputLength, 0, &Answer, Caller);
    if (Answer.Payload != nullptr) {
        FreeRuntimeData(Answer.Payload);
    }
    return Status;
}

EFI_STATUS InvalidParameter(const CHAR8* Caller) {
    TraceAs(Caller, DEBUG_ERROR, "%a: ERROR one or more input parameters are invalid, aborting...\n");
    return EFI_INVALID_PARAMETER;
}

}  // namespace

UINT64 VornElogCxlChipsetExecuteMbCmd(const PCI_DEVICE_STATE* pPciDeviceState, UINT16 Opcode,
                                      const void* pInputPayload, UINT32 InputLength, UINT32* pOutputLength,
                                      void** ppOutputPayload) {
    const CXL_MAILBOX_LOCATION& Mailbox = pPciDeviceState->Cxl.SecondaryMailbox;
    *pOutputLength = 0;
    *ppOutputPayload = nullptr;
    if (Mailbox.Offset == 0) {
        return CxlMbUnsupportedMailbox;
    }
    const UINT64 PayloadSize =
        UINT64{1} << CxlMailboxCapabilities::PayloadSize::Get(MmioRead32(Mailbox.Address + CXL_MAILBOX_CAPABILITIES));
    if (Mailbox.Length < CXL_MAILBOX_PAYLOAD + PayloadSize) {
        Trace(DEBUG_ERROR, "%a: ERROR mailbox length 0x%lx has no room for a payload of 0x%lx bytes\n",
              Mailbox.Length, PayloadSize);
        return CxlMbUnsupportedMailbox;
    }
    return CxlMbCmdExecute(Mailbox.Address, Opcode, pInputPayload, InputLength, pOutputLength, ppOutputPayload);
}

EFI_STATUS VornElogCxlMbCmdGetEventRecords(const PCI_DEVICE_STATE* pPciDeviceState, UINT8 EventLog,
                                           UINT32* pOutputLength, CXL_GET_EVENT_RECORDS_OUTPUT** ppOutput) {
    if (pPciDeviceState == nullptr || pOutputLength == nullptr || ppOutput == nullptr || !IsEventLog(EventLog)) {
        return InvalidParameter(__func__);
    }
    ANSWER Answer = {};
    const EFI_STATUS Status = RunCommand(pPciDeviceState, GET_EVENT_RECORDS, &EventLog, sizeof(EventLog),
                                         sizeof(CXL_GET_EVENT_RECORDS_OUTPUT), &Answer, __func__);
    *pOutputLength = Answer.Length;
    *ppOutput = static_cast<CXL_GET_EVENT_RECORDS_OUTPUT*>(Answer.Payload);
    return Status;
}

EFI_STATUS VornElogCxlMbCmdClearEventRecords(const PCI_DEVICE_STATE* pPciDeviceState, UINT8 EventLog,
                                             const UINT16* pHandles, UINT32 NumberOfHandles) {
    if (pPciDeviceState == nullptr || pHandles == nullptr || !IsEventLog(EventLog)) {
        return InvalidParameter(__func__);
    }
    for (UINT32 Done = 0; Done < NumberOfHandles;) {
        const UINT32 Left = NumberOfHandles - Done;
        const UINT32 Now = Left < HANDLES_PER_COMMAND ? Left : HANDLES_PER_COMMAND;
        CLEAR_COMMAND_INPUT Input = {};
        Input.Front.EventLog = EventLog;
        Input.Front.NumberOfHandles = static_cast<UINT8>(Now);
        CopyMem(Input.Handles, pHandles + Done, Now * sizeof(UINT16));
        const UINT32 Length = sizeof(Input.Front) + Now * sizeof(UINT16);
        const EFI_STATUS Status = RunSilentCommand(pPciDeviceState, CLEAR_EVENT_RECORDS, &Input, Length, __func__);
        if (EFI_ERROR(Status)) {
            return Status;
        }
        Done += Now;
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornElogCxlMbCmdGetEventInterruptPolicy(const PCI_DEVICE_STATE* pPciDeviceState,
                                                   CXL_EVENT_INTERRUPT_POLICY* pPolicy) {
    if (pPciDeviceState == nullptr || pPolicy == nullptr) {
        return InvalidParameter(__func__);
    }
    ANSWER Answer = {};
    const EFI_STATUS Status =
        RunCommand(pPciDeviceState, GET_EVENT_INTERRUPT_POLICY, nullptr, 0, sizeof(*pPolicy), &Answer, __func__);
    if (Answer.Payload == nullptr) {
        return Status;  // an error: this command always has an answer
    }
    // A device with dynamic capacity tells a fifth setting, which stays as it is.
    CopyMem(pPolicy, Answer.Payload, sizeof(*pPolicy));
    FreeRuntimeData(Answer.Payload);
    return EFI_SUCCESS;
}

EFI_STATUS VornElogCxlMbCmdSetEventInterruptPolicy(const PCI_DEVICE_STATE* pPciDeviceState,
                                                   const CXL_EVENT_INTERRUPT_POLICY* pPolicy) {
    if (pPciDeviceState == nullptr || pPolicy == nullptr) {
        return InvalidParameter(__func__);
    }
    return RunSilentCommand(pPciDeviceState, SET_EVENT_INTERRUPT_POLICY, pPolicy, sizeof(*pPolicy), __func__);
}
