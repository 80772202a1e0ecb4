// zorp.h: the provider library, as far as the data channel needs it.
#ifndef SUITE_ZORP_H
#define SUITE_ZORP_H

// The request code of a registration message.
constexpr short ZORP_REGISTRATION_REQUEST = 0x1010;

// Builds the registration message from `registration`, a text of clauses that each end in ';':
//   appl:NAME,KEY;            first and once; NAME 1 to 20 characters, KEY 3 characters
//   type:TYPE;                at most once; one of ZORA_DPTypeNames, NODP when it is left out
//   help:TEXT;                at most once
//   group:NAME;               one or more; NAME 1 to 32 characters
//   attr:NAME,LETTER,SIZE[,HELP];
//                             one or more after each group; NAME 1 to 32 characters, LETTER one of
//                             A C G L N D R T I S, SIZE the value's largest size in bytes
// Blanks and line ends around clauses and parts do not count. Texts hold none of , : ; ' "
//
// Returns 1 and stores the message, which starts with its length in network order, through
// `message`. The message belongs to the provider library: it stays valid until the calling thread
// builds another one, and the caller never frees it. Returns 0, after an error line that names the
// clause, when the text breaks a rule or the message would be over ZOR0_MAX_REQUEST_SIZE bytes.
// Any thread may call.
int ZORP_ConstructDPregisterBuffer(const char* registration, char** message);

#endif  // SUITE_ZORP_H
