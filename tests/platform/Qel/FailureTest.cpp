#include "Qel/Failure.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

#include "Qel/Exception.h"

namespace {

using Qel::failureOf;

TEST(FailureTest, AStepThatGoesWellHasNone) {
  bool ran = false;
  EXPECT_EQ(failureOf([&] { ran = true; }), std::nullopt);
  EXPECT_TRUE(ran);
}

TEST(FailureTest, WhatTheOutsideCausedEndsWithItsText) {
  EXPECT_EQ(failureOf([] { throw Qel::RangeException("no room"); }), "no room");
  EXPECT_EQ(failureOf([] { throw std::bad_alloc(); }), "std::bad_alloc");
  const auto full = std::make_error_code(std::errc::too_many_files_open);
  EXPECT_EQ(failureOf([&] { throw std::system_error(full, "poll"); }), "poll: Too many open files");
  EXPECT_NE(failureOf([&] { throw std::filesystem::filesystem_error("copy", full); }),
            std::nullopt);
}

TEST(FailureTest, ABugPassesThrough) {
  EXPECT_THROW((void)failureOf([] { throw std::logic_error("a bug"); }), std::logic_error);
  EXPECT_THROW((void)failureOf([] { throw std::runtime_error("a bug"); }), std::runtime_error);
  EXPECT_THROW((void)failureOf([] { (void)std::string().at(1); }), std::out_of_range);
  EXPECT_THROW((void)failureOf([] { throw 7; }), int);
}

}  // namespace
