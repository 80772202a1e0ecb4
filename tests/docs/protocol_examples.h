// protocol_examples.h: one worked message of each kind, made by the library itself.
#ifndef TESTS_DOCS_PROTOCOL_EXAMPLES_H
#define TESTS_DOCS_PROTOCOL_EXAMPLES_H

#include <map>
#include <string>

// The messages by the names under which docs/protocol.md shows them. Requests are what the exported
// functions send to a scripted DCH.
std::map<std::string, std::string> protocolExamples();

#endif  // TESTS_DOCS_PROTOCOL_EXAMPLES_H
