// The driver's trace: one call, checked when it is compiled.
#pragma once

#include "Platform/Hardware.h"

enum class TraceKind : UINT8 { Text, WideText, Status, Guid, Integer };

struct TraceArgument {
    TraceKind Kind;
    UINT8 Size;  // bytes of an integer: it prints in its own width
    UINT64 Value;
    bool Signed = false;  // of an integer: %d prints it with its sign
};

namespace TraceDetail {

template <class Type>
struct Identity {
    using type = Type;
};
template <class Type>
struct Bare {
    using type = Type;
};
template <class Type>
struct Bare<const Type> {
    using type = Type;
};

template <class Type>
struct KindOf {
    static_assert(
        requires(Type Value) { Value | Type{}; }, "no conversion prints this type");
    static constexpr TraceKind Kind = TraceKind::Integer;
};
template <>
struct KindOf<EFI_STATUS> {
    static constexpr TraceKind Kind = TraceKind::Status;
};
template <>
struct KindOf<const CHAR8*> {
    static constexpr TraceKind Kind = TraceKind::Text;
};
template <>
struct KindOf<CHAR8*> : KindOf<const CHAR8*> {};
template <UINTN Length>
struct KindOf<CHAR8[Length]> : KindOf<const CHAR8*> {};
template <>
struct KindOf<const CHAR16*> {
    static constexpr TraceKind Kind = TraceKind::WideText;
};
template <>
struct KindOf<CHAR16*> : KindOf<const CHAR16*> {};
template <UINTN Length>
struct KindOf<CHAR16[Length]> : KindOf<const CHAR16*> {};
template <>
struct KindOf<const EFI_GUID*> {
    static constexpr TraceKind Kind = TraceKind::Guid;
};
template <>
struct KindOf<EFI_GUID*> : KindOf<const EFI_GUID*> {};

constexpr bool Matches(CHAR8 Conversion, TraceKind Kind) {
    switch (Conversion) {
        case 'a':
            return Kind == TraceKind::Text;
        case 's':
            return Kind == TraceKind::WideText;
        case 'r':
            return Kind == TraceKind::Status;
        case 'g':
            return Kind == TraceKind::Guid;
        case 'd':
        case 'x':
        case 'X':
            return Kind == TraceKind::Integer;
        default:
            return false;
    }
}

// Not constexpr: reaching one of them ends the compilation with its name in the message.
void UnknownConversionInTraceFormat();
void TraceArgumentsDoNotMatchFormat();

consteval void Check(const CHAR8* Format, bool NamesFunction, const TraceKind* Kinds, UINTN Count) {
    UINTN Used = 0;
    bool First = true;
    for (const CHAR8* At = Format; *At != 0; At++) {
        if (*At != '%') {
            continue;
        }
        At++;
        while ((*At >= '0' && *At <= '9') || *At == 'l') {
            At++;
        }
        if (*At == '%') {
            continue;
        }
        if (First && NamesFunction) {
            First = false;
            continue;
        }
        First = false;
        if (Used == Count || !Matches(*At, Kinds[Used])) {
            TraceArgumentsDoNotMatchFormat();
        }
        Used++;
    }
    if (Used != Count) {
        TraceArgumentsDoNotMatchFormat();
    }
}

template <class Type>
TraceArgument Pack(const Type& Argument) {
    constexpr TraceKind Kind = KindOf<typename Bare<Type>::type>::Kind;
    if constexpr (Kind == TraceKind::Integer) {
        constexpr bool Signed = !(static_cast<Type>(-1) > static_cast<Type>(0));
        return {Kind, sizeof(Type), static_cast<UINT64>(static_cast<INT64>(Argument)), Signed};
    } else if constexpr (Kind == TraceKind::Status) {
        return {Kind, sizeof(Type), static_cast<UINT64>(Argument)};
    } else {
        return {Kind, sizeof(void*), reinterpret_cast<UINT64>(static_cast<const void*>(Argument))};
    }
}

}  // namespace TraceDetail

// A format checked against the arguments' types. Conversions: %a text, %s UTF-16 text, %r status, %g GUID
// (by pointer), %d %x %X integers of any width; with a zero-padded or plain minimum width and with l, which
// changes nothing. Text that begins with "%a: " gets the calling function's name in front of its arguments.
template <class... Arguments>
class TraceFormat {
 public:
    template <UINTN Length>
    consteval TraceFormat(const CHAR8 (&Format)[Length], const CHAR8* Caller = __builtin_FUNCTION())
        : Text(Format), Function(BeginsWithName(Format) ? Caller : nullptr) {
        const TraceKind Kinds[] = {TraceDetail::KindOf<typename TraceDetail::Bare<Arguments>::type>::Kind...,
                                   TraceKind::Integer};
        TraceDetail::Check(Format, Function != nullptr, Kinds, sizeof...(Arguments));
    }

    const CHAR8* Text;
    const CHAR8* Function;

 private:
    static consteval bool BeginsWithName(const CHAR8* Format) {
        return Format[0] == '%' && Format[1] == 'a' && Format[2] == ':' && Format[3] == ' ';
    }
};

// Formats into Buffer, at most Size - 1 characters and a NUL; the rest is cut. Returns the length.
UINTN FormatTrace(CHAR8* Buffer, UINTN Size, const CHAR8* Format, const TraceArgument* Arguments, UINTN Count);

// Prints one line of at most 255 characters behind the processor's prefix.
void PrintTrace(const CHAR8* Format, const TraceArgument* Arguments, UINTN Count);

// Prints the line when its level is enabled.
template <class... Arguments>
void Trace(UINT64 Level, TraceFormat<typename TraceDetail::Identity<Arguments>::type...> Format,
           const Arguments&... Values) {
    if (!DebugPrintLevelEnabled(Level)) {
        return;
    }
    if (Format.Function != nullptr) {
        const TraceArgument Packed[] = {{TraceKind::Text, sizeof(void*), reinterpret_cast<UINT64>(Format.Function)},
                                        TraceDetail::Pack(Values)...};
        PrintTrace(Format.Text, Packed, sizeof...(Values) + 1);
    } else {
        const TraceArgument Packed[] = {TraceDetail::Pack(Values)..., {}};
        PrintTrace(Format.Text, Packed, sizeof...(Values));
    }
}

// For a helper that several operations share: the text begins with "%a: ", and Name, the operation's, stands
// there instead of the helper's own.
template <class... Arguments>
void TraceAs(const CHAR8* Name, UINT64 Level, TraceFormat<typename TraceDetail::Identity<Arguments>::type...> Format,
             const Arguments&... Values) {
    Format.Function = Name;
    Trace<Arguments...>(Level, Format, Values...);
}

// Constructor of the debug library: finds the processor table that the line prefix is made from. Without one,
// lines have no prefix. EFI_SUCCESS.
EFI_STATUS DebugLibConstructor();
