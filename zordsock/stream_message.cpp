#include "zordsock/stream_message.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "suite/descriptor_set.h"
#include "suite/dump.h"
#include "suite/fields.h"
#include "suite/osv1.h"
#include "zordsock/trace_unit.h"

namespace zordsock {

namespace {

// Past this index a dropped piece is freed without a line about its entry.
constexpr ZORA_Long lastReportedEntry = 15;

std::unique_ptr<char[]> allocateBytes(ZORA_Long size) {
  return std::unique_ptr<char[]>(new (std::nothrow) char[static_cast<std::size_t>(size)]);
}

}  // namespace

void StreamMessage::receive(int descriptor) {
  _pieceCount = 0;
  _totalLength = 0;
  _totalRead = 0;
  _wasReset = false;
  while (waitForPiece(descriptor) && receivePiece(descriptor)) {
  }
  // What the first piece lacked of its length word counted as zero until here.
  if (_pieceCount > 1 && static_cast<std::size_t>(_pieces[0].length) < ZOR0_LENGTH_WORD_SIZE)
    _totalLength = static_cast<ZORA_Long>(joinedLengthWord());
}

std::uint32_t StreamMessage::joinedLengthWord() const {
  char word[ZOR0_LENGTH_WORD_SIZE] = {};
  std::size_t known = 0;
  for (ZORA_Long i = 0; i < _pieceCount && known < sizeof word; ++i) {
    const Piece& piece = _pieces[static_cast<std::size_t>(i)];
    const std::size_t count = std::min(sizeof word - known, static_cast<std::size_t>(piece.length));
    std::memcpy(word + known, i == 0 ? _firstPiece.data() : piece.bytes.get(), count);
    known += count;
  }
  return ZOR0_MessageLength(word);
}

bool StreamMessage::waitForPiece(int descriptor) {
  TRC1_DETAIL("[@%p]Waiting on SELECT: connectedSockFD[%d] MaxFD[%d]\n", TRC1_Pointer(&_server),
              descriptor, descriptor + 1);
  ZOR0_DescriptorSet readSet;
  int count = -1;
  if (readSet.reset(descriptor)) {
    readSet.add(descriptor);
    count = select(descriptor + 1, readSet.get(), nullptr, nullptr, nullptr);
  }
  if (count < 1) TRC1_ERROR("Warning: select returned. errno[%d]\n", errno);
  return count >= 1;
}

// Returns whether the message goes on.
bool StreamMessage::receivePiece(int descriptor) {
  char* const bytes = newPiece();
  std::memset(bytes, 0, SERVER_PIECE_SIZE);
  errno = 0;  // ECONNRESET below is to be this call's
  const auto bytesRead =
      static_cast<ZORA_Long>(recvfrom(descriptor, bytes, SERVER_PIECE_SIZE, 0, nullptr, nullptr));
  const int systemError = errno;
  _wasReset = systemError == ECONNRESET;
  // As things stood when this read began: more data was expected.
  TRC1_FLOW("ipcBufCount=%d totalLen=%d totalRead=%d bytesRead=%d initRead=%d moreData=%d\n",
            _pieceCount, _totalLength, _totalRead, bytesRead, _pieceCount == 0, 1);
  if (trc1Scope.on(TRC1_CLASS_FLOW) && VX_Debug() == 2) ZOR0_PrintDump(bytes, 0, bytesRead);
  if (bytesRead > 0) {
    _totalRead += bytesRead;
    _pieces[static_cast<std::size_t>(_pieceCount)].length = bytesRead;
    if (_pieceCount == 0) _totalLength = static_cast<ZORA_Long>(ZOR0_MessageLength(bytes));
    _pieceCount += 1;
    if (_pieceCount == MAX_SERVER_PIECES) {
      TRC1_ERROR("Error: ipcBufCount %d exceeded allowed limit of %d.  Exiting...\n\n",
                 MAX_SERVER_PIECES, MAX_SERVER_PIECES - 1);
      OSV1_EndProcess(0);
    }
  } else if (_pieceCount != 0) {
    dropPiece(bytesRead);
  }
  TRC1_DETAIL("TCP: totalLen=%d, bytesRead=%d, totalRead=%d, errno=%d\n", _totalLength, bytesRead,
              _totalRead, systemError);
  return bytesRead > 0 && _totalLength > _totalRead && _totalLength >= 1;
}

// Room for the next piece; the first one's is kept from message to message.
char* StreamMessage::newPiece() {
  if (_pieceCount == 0) {
    TRC1_DETAIL("Back from Select, reusing ipcBuffer @%p\n", TRC1_Pointer(_firstPiece.data()));
    return _firstPiece.data();
  }
  std::unique_ptr<char[]>& bytes = _pieces[static_cast<std::size_t>(_pieceCount)].bytes;
  bytes = allocateBytes(SERVER_PIECE_SIZE);
  if (bytes == nullptr) {
    TRC1_ERROR("Error: allocating %d bytes for ipcBuffer, current ipcBufCount: %d.  Exiting...\n\n",
               SERVER_PIECE_SIZE, _pieceCount);
    OSV1_EndProcess(0);
  }
  TRC1_STORAGE("Allocated ipcBuffer @%p, storing in ipcBufArray at index: %d\n",
               TRC1_Pointer(bytes.get()), _pieceCount);
  return bytes.get();
}

void StreamMessage::dropPiece(ZORA_Long bytesRead) {
  std::unique_ptr<char[]>& bytes = _pieces[static_cast<std::size_t>(_pieceCount)].bytes;
  TRC1_STORAGE("Deleting ipcBuffer @%p, bytesRead: %d\n", TRC1_Pointer(bytes.get()), bytesRead);
  bytes.reset();
  if (_pieceCount <= lastReportedEntry)
    TRC1_DETAIL("Nulling out ipcBuffer at ipcBufArray index %d\n", _pieceCount);
}

std::unique_ptr<char[]> StreamMessage::join() const {
  std::unique_ptr<char[]> whole = allocateBytes(_totalRead);
  if (whole == nullptr) {
    TRC1_ERROR("Error: allocating %d bytes for completeBuffer.  Exiting...\n\n", _totalRead);
    OSV1_EndProcess(0);
  }
  TRC1_STORAGE("Allocated <%d> bytes for completeBuffer<@%p>\n", _totalRead,
               TRC1_Pointer(whole.get()));
  ZORA_Long offset = 0;
  for (ZORA_Long i = 0; i < _pieceCount; ++i) {
    const Piece& piece = _pieces[static_cast<std::size_t>(i)];
    const char* const bytes = i == 0 ? _firstPiece.data() : piece.bytes.get();
    TRC1_DETAIL("[%d] completeBuffer[@%p], offset[%d], buffer[@%p], dataLen[%d]\n", i,
                TRC1_Pointer(whole.get()), offset, TRC1_Pointer(bytes), piece.length);
    std::memcpy(whole.get() + offset, bytes, static_cast<std::size_t>(piece.length));
    offset += piece.length;
  }
  return whole;
}

void StreamMessage::freePieces() {
  for (ZORA_Long i = 1; i < _pieceCount; ++i) {
    std::unique_ptr<char[]>& bytes = _pieces[static_cast<std::size_t>(i)].bytes;
    TRC1_STORAGE("Deleting ipcBufArray[%i]: @%p\n", i, TRC1_Pointer(bytes.get()));
    bytes.reset();
  }
}

}  // namespace zordsock
