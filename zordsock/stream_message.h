// stream_message.h: one message on its way in over a stream connection of the server.
#ifndef ZORDSOCK_STREAM_MESSAGE_H
#define ZORDSOCK_STREAM_MESSAGE_H

#include <array>
#include <cstdint>
#include <memory>

#include "zora/trc1.h"
#include "zordsock/zordsock.h"

namespace zordsock {

// Used by the receiver thread only, one connection at a time.
class StreamMessage {
 public:
  StreamMessage(const ipcSock& server, const TRC1_Scope& scope)
      : trc1Scope(scope), _server(server) {}

  // Reads from `descriptor` until the announced length is reached or the peer has nothing more;
  // blocks in between. Ends the process when memory or pieces run out.
  void receive(int descriptor);

  // The peer closed or reset the connection.
  bool peerGone() const { return _wasReset || (_totalLength == 0 && _totalRead == 0); }
  bool whole() const { return _totalLength == _totalRead; }
  ZORA_Long totalLength() const { return _totalLength; }
  ZORA_Long totalRead() const { return _totalRead; }
  ZORA_Long pieceCount() const { return _pieceCount; }

  // The bytes of a whole message of one piece; of several pieces, joined in a new block.
  const char* firstPiece() const { return _firstPiece.data(); }
  std::unique_ptr<char[]> join() const;

  // Frees all pieces but the first, which is used again.
  void freePieces();

 private:
  struct Piece {
    std::unique_ptr<char[]> bytes;  // null for the first, which is _firstPiece
    ZORA_Long length = 0;
  };

  bool waitForPiece(int descriptor);
  bool receivePiece(int descriptor);
  std::uint32_t joinedLengthWord() const;
  char* newPiece();
  void dropPiece(ZORA_Long bytesRead);

  const TRC1_Scope& trc1Scope;
  const ipcSock& _server;
  std::array<char, SERVER_PIECE_SIZE> _firstPiece;
  std::array<Piece, MAX_SERVER_PIECES> _pieces;
  ZORA_Long _pieceCount = 0;
  ZORA_Long _totalLength = 0;  // as the length word announces it
  ZORA_Long _totalRead = 0;
  bool _wasReset = false;
};

}  // namespace zordsock

#endif  // ZORDSOCK_STREAM_MESSAGE_H
