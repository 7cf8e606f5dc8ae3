// Any format with any arguments: the line stays in its buffer, ends with a NUL and says how long it is.
#include <array>
#include <string>

#include "Fuzz/Input.h"
#include "Fuzz/Property.h"
#include "Library/RasLib/Trace.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* Data, std::size_t Size) {
    FuzzInput Input(Data, Size);
    constexpr std::size_t Arguments = 6;
    const std::size_t Room = Input.Byte();
    std::array<std::string, Arguments> Texts;
    std::array<std::u16string, Arguments> WideTexts;
    std::array<EFI_GUID, Arguments> Guids;
    std::array<TraceArgument, Arguments> Packed{};
    for (std::size_t Index = 0; Index < Arguments; Index++) {
        const auto Raw = Input.Take<std::uint64_t>();
        Texts[Index].assign(Raw % 300, static_cast<char>(Raw >> 16));
        WideTexts[Index].assign(Raw % 300, static_cast<char16_t>(Raw >> 16));
        std::memcpy(&Guids[Index], &Raw, sizeof(Raw));
        const bool IsNull = (Raw >> 40 & 7) == 0;
        const auto Pointer = [IsNull](const void* Where) {
            return IsNull ? 0 : reinterpret_cast<std::uint64_t>(Where);
        };
        constexpr TraceKind Kinds[] = {TraceKind::Text, TraceKind::WideText, TraceKind::Guid, TraceKind::Status,
                                       TraceKind::Integer};
        constexpr std::uint8_t Widths[] = {1, 2, 4, 8};
        const TraceKind Kind = Kinds[Input.Below(5)];
        const std::uint64_t Value = Kind == TraceKind::Text       ? Pointer(Texts[Index].c_str())
                                    : Kind == TraceKind::WideText ? Pointer(WideTexts[Index].c_str())
                                    : Kind == TraceKind::Guid     ? Pointer(&Guids[Index])
                                                                  : Raw;
        Packed[Index] = {Kind, Widths[Input.Below(4)], Value, Input.Below(2) != 0};
    }
    const std::vector<std::uint8_t> Rest = Input.Bytes(1024);
    const std::string Format(Rest.begin(), Rest.end());

    constexpr char Guard = 0x5A;
    std::array<char, 257> Buffer;
    Buffer.fill(Guard);
    const UINTN Length = FormatTrace(Buffer.data(), Room, Format.c_str(), Packed.data(), Arguments);
    if (Room == 0) {
        MustHold(Buffer[0] == Guard, "nothing is written into no room");
        return 0;
    }
    MustHold(Length < Room, "the line leaves room for its end");
    MustHold(Buffer[Length] == 0, "the line ends where its length says");
    MustHold(std::memchr(Buffer.data(), 0, Length) == nullptr || Format.find('\0') == 0, "no end before the end");
    for (std::size_t Index = Room; Index < Buffer.size(); Index++) {
        MustHold(Buffer[Index] == Guard, "nothing is written behind the room");
    }
    return 0;
}
