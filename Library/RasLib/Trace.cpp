#include "Library/RasLib/Trace.h"

#include "Library/RasLib/Protocols.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/SmmCpuService.h"
#include "Platform/State.h"

namespace {

constexpr UINTN LINE_BUFFER_SIZE = 256;

// Status texts (UEFI 2.10, appendix D), by error code.
constexpr const CHAR8* STATUS_TEXTS[] = {
    "Success",   "Load Error",    "Invalid Parameter", "Unsupported",      "Bad Buffer Size", "Buffer Too Small",
    "Not Ready", "Device Error",  "Write Protected",   "Out of Resources", "Volume Corrupt",  "Volume Full",
    "No Media",  "Media changed", "Not Found",         "Access Denied",    "No Response",     "No mapping",
    "Time out",  "Not started",   "Already started",   "Aborted",
};
constexpr UINTN STATUS_TEXT_COUNT = sizeof(STATUS_TEXTS) / sizeof(STATUS_TEXTS[0]);

constexpr UINT64 DigitsFor(UINT64 Value, unsigned Base) {
    UINT64 Digits = 1;
    while (Value >= Base) {
        Value /= Base;
        Digits++;
    }
    return Digits;
}

// Collects one line; what does not fit is cut.
class LineWriter {
 public:
    LineWriter(CHAR8* Buffer, UINTN Size) : Text(Buffer), Room(Size == 0 ? 0 : Size - 1) {}

    void Put(CHAR8 Character) {
        if (Length < Room) {
            Text[Length++] = Character;
        }
    }

    void Fill(CHAR8 Character, UINT64 Used, UINT64 Width) {
        for (; Used < Width && Length < Room; Used++) {
            Put(Character);
        }
    }

    template <class Character>
    void PutText(const Character* Source, UINT64 Width) {
        if (Source == nullptr) {
            PutText("(null)", Width);
            return;
        }
        UINT64 Characters = 0;
        while (Characters < LINE_BUFFER_SIZE && Source[Characters] != 0) {
            Characters++;
        }
        Fill(' ', Characters, Width);
        for (UINT64 At = 0; At < Characters; At++) {
            // The serial port takes ASCII.
            Put(static_cast<UINT32>(Source[At]) < 0x80 ? static_cast<CHAR8>(Source[At]) : '?');
        }
    }

    void PutNumber(UINT64 Value, unsigned Base, bool Negative, CHAR8 FirstLetter, CHAR8 Padding, UINT64 Width) {
        const UINT64 Digits = DigitsFor(Value, Base);
        const UINT64 Used = Digits + (Negative ? 1 : 0);
        if (Negative && Padding == '0') {
            Put('-');
        }
        Fill(Padding, Used, Width);
        if (Negative && Padding != '0') {
            Put('-');
        }
        UINT64 Divisor = 1;
        for (UINT64 At = 1; At < Digits; At++) {
            Divisor *= Base;
        }
        for (; Divisor != 0; Divisor /= Base) {
            const UINT64 Digit = Value / Divisor % Base;
            Put(static_cast<CHAR8>(Digit < 10 ? '0' + Digit : FirstLetter + Digit - 10));
        }
    }

    void PutHex(UINT64 Value, UINT64 Width) {
        PutNumber(Value, 16, false, 'A', '0', Width);
    }

    void PutStatus(UINT64 Status, UINT64 Width) {
        const UINT64 ErrorCode = Status & ~EFI_ERROR_BIT;
        const bool IsError = ErrorCode != Status && ErrorCode != 0;
        if (Status == 0 || (IsError && ErrorCode < STATUS_TEXT_COUNT)) {
            PutText(STATUS_TEXTS[ErrorCode], Width);
        } else {
            PutHex(Status, 16);
        }
    }

    void PutGuid(const EFI_GUID* Guid) {
        if (Guid == nullptr) {
            PutText("(null)", 0);
            return;
        }
        PutHex(Guid->Data1, 8);
        Put('-');
        PutHex(Guid->Data2, 4);
        Put('-');
        PutHex(Guid->Data3, 4);
        Put('-');
        for (UINTN At = 0; At < sizeof(Guid->Data4); At++) {
            if (At == 2) {
                Put('-');
            }
            PutHex(Guid->Data4[At], 2);
        }
    }

    UINTN Finish() {
        Text[Length] = 0;
        return Length;
    }

 private:
    CHAR8* Text;
    UINTN Room;
    UINTN Length = 0;
};

void PutInteger(LineWriter& Line, const TraceArgument& Argument, CHAR8 Conversion, CHAR8 Padding, UINT64 Width) {
    if (Conversion == 'd') {
        const bool Negative = Argument.Signed && static_cast<INT64>(Argument.Value) < 0;
        Line.PutNumber(Negative ? 0 - Argument.Value : Argument.Value, 10, Negative, '0', Padding, Width);
        return;
    }
    const UINT64 Mask = Argument.Size < sizeof(UINT64) ? (UINT64{1} << (Argument.Size * 8)) - 1 : ~UINT64{0};
    Line.PutNumber(Argument.Value & Mask, 16, false, Conversion == 'X' ? 'A' : 'a', Padding, Width);
}

void PutArgument(LineWriter& Line, const TraceArgument& Argument, CHAR8 Conversion, CHAR8 Padding, UINT64 Width) {
    switch (Argument.Kind) {
        case TraceKind::Text:
            Line.PutText(reinterpret_cast<const CHAR8*>(Argument.Value), Width);
            break;
        case TraceKind::WideText:
            Line.PutText(reinterpret_cast<const CHAR16*>(Argument.Value), Width);
            break;
        case TraceKind::Status:
            Line.PutStatus(Argument.Value, Width);
            break;
        case TraceKind::Guid:
            Line.PutGuid(reinterpret_cast<const EFI_GUID*>(Argument.Value));
            break;
        case TraceKind::Integer:
            PutInteger(Line, Argument, Conversion, Padding, Width);
            break;
    }
}

KYR_STATE const EFI_SMM_CPU_SERVICE_PROTOCOL* mProcessorTable = nullptr;

UINTN FormatPrefix(CHAR8* Buffer, UINTN Size) {
    UINTN Processor = 0;
    EFI_PROCESSOR_INFORMATION Info{};
    if (mProcessorTable == nullptr || EFI_ERROR(mProcessorTable->WhoAmI(mProcessorTable, &Processor)) ||
        EFI_ERROR(mProcessorTable->GetProcessorInfo(mProcessorTable, Processor, &Info))) {
        return 0;
    }
    const TraceArgument Arguments[] = {TraceDetail::Pack(Info.ProcessorId), TraceDetail::Pack(Info.Location.Package),
                                       TraceDetail::Pack(Info.Location.Core),
                                       TraceDetail::Pack(Info.Location.Thread)};
    return FormatTrace(Buffer, Size, "[SMM] APIC 0x%02x S%02d:C%02d:T%02d > ", Arguments, 4);
}

}  // namespace

UINTN FormatTrace(CHAR8* Buffer, UINTN Size, const CHAR8* Format, const TraceArgument* Arguments, UINTN Count) {
    if (Size == 0) {
        return 0;
    }
    LineWriter Line(Buffer, Size);
    UINTN Used = 0;
    for (const CHAR8* At = Format; *At != 0; At++) {
        if (*At != '%') {
            Line.Put(*At);
            continue;
        }
        At++;
        const CHAR8 Padding = *At == '0' ? '0' : ' ';
        UINT64 Width = 0;
        for (; (*At >= '0' && *At <= '9') || *At == 'l'; At++) {
            if (*At != 'l') {
                Width = Width * 10 + static_cast<UINT64>(*At - '0');
            }
        }
        if (*At == 0) {
            break;
        }
        if (*At == '%') {
            Line.Put('%');
        } else if (Used < Count) {
            PutArgument(Line, Arguments[Used++], *At, Padding, Width);
        }
    }
    return Line.Finish();
}

void PrintTrace(const CHAR8* Format, const TraceArgument* Arguments, UINTN Count) {
    CHAR8 Message[LINE_BUFFER_SIZE];
    const UINTN MessageLength = FormatTrace(Message, sizeof(Message), Format, Arguments, Count);
    CHAR8 Prefix[LINE_BUFFER_SIZE];
    const UINTN PrefixLength = FormatPrefix(Prefix, sizeof(Prefix));
    DebugPortWrite(Prefix, PrefixLength, Message, MessageLength);
}

EFI_STATUS DebugLibConstructor() {
    const EFI_STATUS Status = LocateSmmProtocol(gEfiSmmCpuServiceProtocolGuid, &mProcessorTable);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_INIT, "%a: %r locating protocol gEfiSmmCpuServiceProtocolGuid, lines carry no prefix\n", Status);
    }
    return EFI_SUCCESS;
}
