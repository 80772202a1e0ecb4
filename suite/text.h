// text.h: small services for texts, addresses and bytes.
//
// Any thread may call any function here. None throws.
#ifndef SUITE_TEXT_H
#define SUITE_TEXT_H

#include <cstddef>
#include <cstdint>

// Keeps the rightmost `keep` of the `length` characters of `text`, in place.
void ZOR0_TruncateFromLeft(char* text, int length, int keep);

// Takes the next token of `text`, as strtok does; each thread has its own place.
char* ZOR0_strtok(char* text, const char* delimiters);

// CRC-32 (ISO-HDLC, as in zlib).
std::uint32_t ZOR0_ComputeCheckSum(const void* data, std::size_t length);

// Non-zero when the address may be used: it is not null.
int ZOR0_IsValidPointer(const void* pointer);

#endif  // SUITE_TEXT_H
