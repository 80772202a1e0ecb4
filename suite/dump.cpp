#include "suite/dump.h"

#include "suite/trace_unit.h"

namespace {

constexpr char digits[] = "0123456789abcdef";
constexpr int bytesPerLine = 16;

// "00 00 00 12 ...  |....|", the hexadecimal part always as wide as that of a full line.
struct DumpLine {
  char hexadecimal[bytesPerLine * 3 + 1];
  char characters[bytesPerLine + 1];

  DumpLine(const unsigned char* bytes, int count) {
    char* hex = hexadecimal;
    char* character = characters;
    for (int i = 0; i < bytesPerLine; ++i) {
      *hex++ = i < count ? digits[bytes[i] >> 4] : ' ';
      *hex++ = i < count ? digits[bytes[i] & 0xF] : ' ';
      *hex++ = ' ';
      if (i < count)
        *character++ = bytes[i] >= 0x20 && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '.';
    }
    *hex = '\0';
    *character = '\0';
  }
};

}  // namespace

// Whoever asks for a dump has tested its own class, so there is no second test here.
void ZOR0_PrintDump(const void* buffer, int offset, int length) {
  TRC1_QUIET_FUNCTION("ZOR0_PrintDump");
  if (buffer == nullptr || offset < 0) return;
  const unsigned char* bytes = static_cast<const unsigned char*>(buffer) + offset;
  for (int done = 0; done < length; done += bytesPerLine) {
    const int left = length - done;
    const DumpLine line(bytes + done, left < bytesPerLine ? left : bytesPerLine);
    TRC1_Printf(trc1Scope.block(), __LINE__, "%04x  %s |%s|\n",
                static_cast<unsigned>(offset) + static_cast<unsigned>(done), line.hexadecimal,
                line.characters);
    if (left <= bytesPerLine) break;  // `done` never passes INT_MAX
  }
}

void TRC1_PrintAddress(TRC1_Block* block, int line, const char* label, const void* address,
                       int length) {
  constexpr int maxLength = 256;  // the longest address that a slot of the server's queue keeps
  char hexadecimal[2 * maxLength + 1];
  const auto* bytes = static_cast<const unsigned char*>(address);
  char* out = hexadecimal;
  for (int i = 0; bytes != nullptr && i < length && i < maxLength; ++i) {
    *out++ = digits[bytes[i] >> 4];
    *out++ = digits[bytes[i] & 0xF];
  }
  *out = '\0';
  TRC1_Printf(block, line, "%s: clientAddr <%d<%s>>\n", label, length, hexadecimal);
}
