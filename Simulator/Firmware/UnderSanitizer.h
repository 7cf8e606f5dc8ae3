// Whether the address sanitizer is built in: each compiler says it in its own way.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define UNDER_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define UNDER_ADDRESS_SANITIZER 1
#endif
#endif
#ifndef UNDER_ADDRESS_SANITIZER
#define UNDER_ADDRESS_SANITIZER 0
#endif

// Of a function that reads what is forbidden to everybody else.
#if UNDER_ADDRESS_SANITIZER
#define READS_FORBIDDEN __attribute__((no_sanitize_address))
#else
#define READS_FORBIDDEN
#endif
