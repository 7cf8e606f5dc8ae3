// What the compiler calls for copies, fills and comparisons.
#include "Platform/Base.h"

extern "C" {

void* memcpy(void* Destination, const void* Source, UINTN Bytes) {
    void* To = Destination;
    __asm__ __volatile__("rep movsb" : "+D"(To), "+S"(Source), "+c"(Bytes) : : "memory");
    return Destination;
}

void* memmove(void* Destination, const void* Source, UINTN Bytes) {
    auto* To = static_cast<UINT8*>(Destination);
    const auto* From = static_cast<const UINT8*>(Source);
    if (To <= From || To >= From + Bytes) {
        return memcpy(Destination, Source, Bytes);
    }
    To += Bytes;
    From += Bytes;
    while (Bytes-- != 0) {
        *--To = *--From;
        __asm__ __volatile__("" : : : "memory");  // no call to itself
    }
    return Destination;
}

void* memset(void* Buffer, int Value, UINTN Bytes) {
    void* To = Buffer;
    __asm__ __volatile__("rep stosb" : "+D"(To), "+c"(Bytes) : "a"(Value) : "memory");
    return Buffer;
}

int memcmp(const void* Left, const void* Right, UINTN Bytes) {
    const auto* One = static_cast<const UINT8*>(Left);
    const auto* Other = static_cast<const UINT8*>(Right);
    for (UINTN At = 0; At < Bytes; At++) {
        if (One[At] != Other[At]) {
            return One[At] < Other[At] ? -1 : 1;
        }
    }
    return 0;
}

}  // extern "C"
