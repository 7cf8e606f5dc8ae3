// The command mailbox of a CXL memory device (CXL 3.0, section 8.2.8.4).
#pragma once

#include "Include/CxlRegisters.h"

// Sends a command and waits until the device has answered, at most 2 seconds before and 2 seconds after.
// MailboxBase: memory address of the mailbox; its registers and the payload that they tell must be the device's own.
// Opcode: CXL_MAILBOX_OPCODE. pInputPayload: InputLength bytes, NULL only when that is 0.
// *pOutputLength and *ppOutputPayload: bytes and block of the answer, 0 and NULL after a failure or an empty answer;
// the caller gives the block back to the SMM pool. A length without a block says that the pool had none; an answer
// longer than the mailbox's payload is dropped.
// CXL return code: Busy when the doorbell stays set, before the command is written or after; Invalid Input when the
// input is larger than the mailbox's payload (nothing is written then); else what the device returned.
UINT16 CxlMbCmdExecute(UINT64 MailboxBase, UINT16 Opcode, const void* pInputPayload, UINT32 InputLength,
                       UINT32* pOutputLength, void** ppOutputPayload);

// Name of a return code, for people.
const CHAR8* CxlMbReturnCodeText(UINT64 ReturnCode);
