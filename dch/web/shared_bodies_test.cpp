#include "dch/web/shared_bodies.h"

#include <gtest/gtest.h>

#include <vector>

namespace dch {
namespace {

using BodyKind = SharedBodies::Kind;

TEST(SharedBodies, AreMadeOnceForASnapshot) {
  SharedBodies bodies;
  const auto snapshot = std::make_shared<const Snapshot>();
  int made = 0;
  const auto make = [&] { return std::to_string(++made); };
  const SharedText first = bodies.of(snapshot, BodyKind::applications, make);
  EXPECT_EQ("1", *first);
  EXPECT_EQ(first, bodies.of(snapshot, BodyKind::applications, make));
  EXPECT_EQ("2", *bodies.of(snapshot, BodyKind::openMetrics, make));
  EXPECT_EQ("3", *bodies.of(std::make_shared<const Snapshot>(), BodyKind::applications, make));
}

TEST(SharedBodies, AreNotMadeWhileTooMuchIsBeingRead) {
  SharedBodies bodies;
  std::vector<SharedText> read;
  const auto ask = [&] {
    return bodies.of(std::make_shared<const Snapshot>(), BodyKind::openMetrics,
                     [] { return std::string(SharedBodies::mostBytes / 2, 'x'); });
  };
  for (SharedText text = ask(); text != nullptr; text = ask()) read.push_back(text);
  EXPECT_EQ(3U, read.size());
  EXPECT_EQ(SharedBodies::mostBytes / 2 * 3, bodies.bytes());
  read.pop_back();
  EXPECT_NE(nullptr, ask());
  read.clear();
  EXPECT_EQ(0U, bodies.bytes());
}

}  // namespace
}  // namespace dch
