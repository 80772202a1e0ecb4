#include "dch/link/site_copies.h"

#include <string>

#include "dch/link/site_copies_fixture.h"

namespace dch {
namespace {

constexpr char newSource[] = "S A g new\n";

TEST_F(SiteCopiesTest, AsksForAllOfASiteInPieces) {
  hear("west", 5, 5);
  EXPECT_EQ(next(), "west ");
  EXPECT_EQ(next(), "none");
  answer(5, "S A g a\nS A g b\n", false);
  EXPECT_EQ(_sink.take(), "west first S A g a,S A g b;");
  EXPECT_EQ(next(), "west S A g b");
  answer(5, "S A g c\n", false);
  EXPECT_EQ(_sink.take(), "west more S A g c;");
  EXPECT_EQ(next(), "west S A g c");
  answer(5, "");
  EXPECT_EQ(_sink.take(), "west more end;");
  EXPECT_EQ(next(), "none");
}

TEST_F(SiteCopiesTest, TakesChangesFromThatRevisionOn) {
  copy("west", 5);
  hear("west", 5, 6, newSource);
  hear("west", 6, 8, "U B\nG A g new\n");
  EXPECT_EQ(_sink.take(), "west more S A g new;west more U B,G A g new;");
  hear("west", 8, 8);
  EXPECT_EQ(next(), "none");
}

TEST_F(SiteCopiesTest, ChangesMayBeginBeforeTheRevisionThatIsKnown) {
  copy("west", 5);
  hear("west", 3, 7, newSource);
  EXPECT_EQ(_sink.take(), "west more S A g new;");
  hear("west", 7, 7);
  EXPECT_EQ(next(), "none");
}

TEST_F(SiteCopiesTest, OldChangesSayNothing) {
  copy("west", 5);
  hear("west", 3, 4, newSource);
  hear("west", 4, 5, newSource);
  EXPECT_EQ(_sink.take(), "");
  EXPECT_EQ(next(), "none");
}

TEST_F(SiteCopiesTest, ChangesThatAreMissingLeadToAnotherCopy) {
  copy("west", 5);
  pass(100);
  hear("west", 6, 7, newSource);
  EXPECT_EQ(_sink.take(), "");
  EXPECT_EQ(next(), "west ");
  answer(7, "S A g s\n");
  EXPECT_EQ(_sink.take(), "west first S A g s end;");
}

TEST_F(SiteCopiesTest, ARevisionWithoutItsChangesLeadsToAnotherCopy) {
  copy("west", 5);
  pass(100);
  hear("west", 6, 6);
  EXPECT_EQ(next(), "west ");
}

TEST_F(SiteCopiesTest, AnotherRunIsAskedForAll) {
  copy("west", 5);
  pass(100);
  hear("west", 5, 5, {}, 'b');
  EXPECT_EQ(next(), "west ");
  answer(5, "", true, 'b');
  EXPECT_EQ(_sink.take(), "west first end;");
  hear("west", 5, 6, newSource, 'b');
  EXPECT_EQ(_sink.take(), "west more S A g new;");
}

TEST_F(SiteCopiesTest, ARunThatSaysNothingYetIsNotAsked) {
  hear("west", 0, 0);
  EXPECT_EQ(next(), "none");
  hear("west", 1, 1);
  EXPECT_EQ(next(), "west ");
}

TEST_F(SiteCopiesTest, ARestartedSiteKeepsItsSourcesUntilItSaysSomething) {
  copy("west", 5);
  pass(100);
  hear("west", 0, 0, {}, 'b');
  EXPECT_EQ(next(), "none");
  pass(30);
  hear("west", 0, 0, {}, 'b');
  EXPECT_EQ(next(), "none");
  EXPECT_EQ(_sink.take(), "");
  hear("west", 0, 1, newSource, 'b');
  EXPECT_EQ(next(), "west ");
}

TEST_F(SiteCopiesTest, OneThatSaysNothingForLongHasNothingOnLine) {
  copy("west", 5);
  hear("west", 0, 0, {}, 'b');
  pass(61);
  hear("west", 0, 0, {}, 'b');
  EXPECT_EQ(_sink.take(), "west silent;");
  hear("west", 0, 0, {}, 'b');
  EXPECT_EQ(_sink.take(), "");
}

// ---- Copies and changes together ---------------------------------------------------------------

TEST_F(SiteCopiesTest, TakesChangesWhileACopyIsUnderWay) {
  hear("west", 5, 5);
  next();
  answer(5, "S A g a\n", false);
  EXPECT_EQ(next(), "west S A g a");
  hear("west", 5, 6, newSource);
  answer(6, "S A g new\n");
  EXPECT_EQ(_sink.take(), "west first S A g a;west more S A g new;west more S A g new end;");
  hear("west", 6, 6);
  EXPECT_EQ(next(), "none");
}

TEST_F(SiteCopiesTest, APieceThatChangesHaveOvertakenIsAskedForAgain) {
  hear("west", 5, 5);
  next();
  answer(5, "S A g a\n", false);
  next();
  hear("west", 5, 7, newSource);
  _sink.take();
  answer(6, "S A g b\n");
  EXPECT_EQ(_sink.take(), "");
  pass(1);
  EXPECT_EQ(next(), "west S A g a");
  answer(7, "S A g new\n");
  EXPECT_EQ(_sink.take(), "west more S A g new end;");
}

TEST_F(SiteCopiesTest, AFirstPieceThatWordsHaveOvertakenIsAskedForAgain) {
  hear("west", 5, 5);
  next();
  hear("west", 5, 6, newSource);
  answer(5, "S A g s\n");
  EXPECT_EQ(_sink.take(), "");
  pass(1);
  EXPECT_EQ(next(), "west ");
}

TEST_F(SiteCopiesTest, APieceMayBeNewerThanTheChangesThatAreKnown) {
  hear("west", 5, 5);
  next();
  answer(5, "S A g a\n", false);
  next();
  answer(7, "S A g b\n");
  _sink.take();
  hear("west", 5, 7, "S A g b\n");
  EXPECT_EQ(_sink.take(), "west more S A g b;");
  EXPECT_EQ(next(), "none");
}

TEST_F(SiteCopiesTest, ACopyWithAGapIsFinishedAndFollowedByAnother) {
  hear("west", 5, 5);
  next();
  answer(5, "S A g a\n", false);
  hear("west", 9, 9);
  EXPECT_EQ(next(), "west S A g a");
  answer(9, "S A g b\n");
  EXPECT_EQ(_sink.take(), "west first S A g a;west more S A g b end;");
  pass(5);
  EXPECT_EQ(next(), "west ");
  answer(9, "S A g b\n");
  EXPECT_EQ(_sink.take(), "west first S A g b end;");
  pass(200);
  EXPECT_EQ(next(), "none");
}

TEST_F(SiteCopiesTest, AnotherRunEndsACopy) {
  hear("west", 5, 5);
  next();
  answer(5, "S A g a\n", false);
  next();
  hear("west", 3, 3, {}, 'b');
  answer(5, "S A g b\n");
  EXPECT_EQ(_sink.take(), "west first S A g a;");
  pass(5);
  EXPECT_EQ(next(), "west ");
  answer(3, "S A g c\n", true, 'b');
  EXPECT_EQ(_sink.take(), "west first S A g c end;");
}

TEST_F(SiteCopiesTest, APieceOfAnotherRunEndsACopy) {
  hear("west", 5, 5);
  next();
  answer(5, "S A g a\n", false);
  next();
  answer(9, "S A g b\n", true, 'b');
  EXPECT_EQ(_sink.take(), "west first S A g a;");
  pass(5);
  EXPECT_EQ(next(), "west ");
}

TEST_F(SiteCopiesTest, FollowsTheRunThatAnswers) {
  hear("west", 5, 5, {}, 'a');
  next();
  answer(2, "S A g a\n", true, 'b');
  hear("west", 2, 3, newSource, 'b');
  EXPECT_EQ(_sink.take(), "west first S A g a end;west more S A g new;");
}

// ---- Silence -----------------------------------------------------------------------------------

TEST_F(SiteCopiesTest, ASilentSiteIsToldAndAskedAnewWhenItIsBack) {
  copy("west", 5);
  pass(100);
  _copies.silent("west", _now);
  EXPECT_EQ(_sink.take(), "west silent;");
  EXPECT_EQ(next(), "none");
  hear("west", 5, 5);
  EXPECT_EQ(next(), "west ");
}

TEST_F(SiteCopiesTest, AnAnswerOfASilentSiteIsTooLate) {
  copy("west", 5);
  pass(100);
  hear("west", 7, 7);
  next();
  _copies.silent("west", _now);
  EXPECT_EQ(_sink.take(), "west silent;");
  answer(7, "S A g s\n");
  EXPECT_EQ(_sink.take(), "");
}

TEST_F(SiteCopiesTest, SilenceOfASiteOfWhichNothingWasToldIsNot) {
  _copies.silent("west", _now);
  hear("west", 5, 5);
  _copies.silent("west", _now);
  EXPECT_EQ(next(), "none");
  EXPECT_EQ(_sink.take(), "");
}

TEST_F(SiteCopiesTest, SilenceIsToldWhenThereIsRoom) {
  copy("west", 5);
  _sink.isFull = true;
  _copies.silent("west", _now);
  pass(1);
  EXPECT_EQ(next(), "none");
  _sink.isFull = false;
  pass(1);
  EXPECT_EQ(next(), "none");
  EXPECT_EQ(_sink.take(), "west silent;");
  pass(1);
  EXPECT_EQ(next(), "none");
  EXPECT_EQ(_sink.take(), "");
}

// ---- Room --------------------------------------------------------------------------------------

TEST_F(SiteCopiesTest, AsksOnlyWhileThereIsRoom) {
  _sink.isOpen = false;
  hear("west", 5, 5);
  EXPECT_EQ(next(), "none");
  _sink.isOpen = true;
  pass(1);
  EXPECT_EQ(next(), "west ");
}

TEST_F(SiteCopiesTest, WhatFindsNoRoomIsAskedForAgain) {
  hear("west", 5, 5);
  next();
  _sink.isFull = true;
  answer(5, "S A g a\n");
  _sink.isFull = false;
  pass(5);
  EXPECT_EQ(next(), "west ");
  answer(5, "S A g a\n");
  EXPECT_EQ(_sink.take(), "west first S A g a end;");
  _sink.isFull = true;
  hear("west", 5, 6, newSource);
  _sink.isFull = false;
  pass(5);
  EXPECT_EQ(next(), "west ");
}

TEST_F(SiteCopiesTest, ItsOwnSiteIsNotFollowed) {
  hear("own", 5, 5);
  EXPECT_EQ(next(), "none");
}

}  // namespace
}  // namespace dch
