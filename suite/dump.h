// dump.h: bytes in the trace.
//
// Any thread may call any function here. None throws.
#ifndef SUITE_DUMP_H
#define SUITE_DUMP_H

// Writes a hexadecimal dump of `length` bytes from `offset` on to the trace, 16 bytes a record,
// from the function "ZOR0_PrintDump" and whatever the rules say: the caller tests its own class
// first. A null buffer, a negative offset and a length of 0 or less write nothing.
void ZOR0_PrintDump(const void* buffer, int offset, int length);

#endif  // SUITE_DUMP_H
