// Layout checks for records that others lay down byte for byte. They stand right beneath the record.
#pragma once

#include "Platform/Base.h"

// The record is plain data of exactly Size bytes.
#define KYR_RECORD(Type, Size)             \
    static_assert(sizeof(Type) == (Size)); \
    static_assert(__is_trivially_copyable(Type) && __is_standard_layout(Type))

// The field lies Offset bytes into the record.
#define KYR_FIELD(Type, Member, Offset) static_assert(offsetof(Type, Member) == (Offset))
