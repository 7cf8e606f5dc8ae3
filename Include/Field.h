// Register fields as data sheets write them: high bit, low bit, both included.
#pragma once

#include "Platform/Base.h"

template <class Word, unsigned High, unsigned Low = High>
struct Field {
    static_assert(High >= Low && High < sizeof(Word) * 8, "high bit first, both inside the word");

    static constexpr unsigned Shift = Low;
    static constexpr Word Max = static_cast<Word>(static_cast<Word>(~Word{0}) >> (sizeof(Word) * 8 - 1 - High + Low));
    static constexpr Word Mask = static_cast<Word>(Max << Low);

    // The field's value, right-aligned.
    static constexpr Word Get(Word Register) {
        return static_cast<Word>((Register & Mask) >> Low);
    }
    // Register with the field replaced by the low bits of Value; other bits stay.
    static constexpr Word Set(Word Register, Word Value) {
        return static_cast<Word>((Register & ~Mask) | ((Value << Low) & Mask));
    }
    // A word that holds nothing but the field.
    static constexpr Word Of(Word Value) {
        return static_cast<Word>((Value << Low) & Mask);
    }
};

// True when no two of the fields share a bit.
template <class... Fields>
constexpr bool FieldsDisjoint() {
    UINT64 Seen = 0;
    bool Disjoint = true;
    ((Disjoint = Disjoint && (Seen & Fields::Mask) == 0, Seen |= Fields::Mask), ...);
    return Disjoint;
}
