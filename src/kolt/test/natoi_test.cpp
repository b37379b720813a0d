#include "kolt/natoi.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>

namespace {

// The number and the error that came with it.
template <typename T>
struct Outcome {
  T value;
  int error;
  bool operator==(const Outcome&) const = default;
};

template <typename T>
Outcome<T> read(const char* text) {
  errno = EIO;  // whatever was there before
  const T value = natoi<T>(text, nullptr, nullptr);
  return {value, errno};
}

typedef Outcome<unsigned short> Short_Outcome;
typedef Outcome<long> Long_Outcome;

TEST(Natoi, LargestUnsignedShortIsRead) {
  EXPECT_EQ(read<unsigned short>("65535"), (Short_Outcome{65535, 0}));
}

TEST(Natoi, OneAboveTheLargestIsOutOfRange) {
  EXPECT_EQ(read<unsigned short>("65536"), (Short_Outcome{65535, ERANGE}));
}

TEST(Natoi, MoreDigitsThanAnyNumberAreOutOfRange) {
  EXPECT_EQ(read<unsigned short>("99999999999999999999999999"), (Short_Outcome{65535, ERANGE}));
}

TEST(Natoi, MinusBeforeAnUnsignedNumberIsInvalid) {
  EXPECT_EQ(read<unsigned short>("-1"), (Short_Outcome{0, EINVAL}));
}

TEST(Natoi, EmptyTextIsInvalid) {
  EXPECT_EQ(read<unsigned short>(""), (Short_Outcome{0, EINVAL}));
}

TEST(Natoi, NullIsInvalid) {
  EXPECT_EQ(read<long>(nullptr), (Long_Outcome{0, EINVAL}));
}

TEST(Natoi, PlusIsSkipped) {
  EXPECT_EQ(read<unsigned short>("+80"), (Short_Outcome{80, 0}));
}

TEST(Natoi, SmallestLongIsRead) {
  EXPECT_EQ(read<long>("-9223372036854775808"), (Long_Outcome{INT64_MIN, 0}));
}

TEST(Natoi, OneBelowTheSmallestGivesTheLargestLong) {
  EXPECT_EQ(read<long>("-9223372036854775809"), (Long_Outcome{INT64_MAX, ERANGE}));
}

TEST(Natoi, LargestLongIsRead) {
  EXPECT_EQ(read<long>("9223372036854775807"), (Long_Outcome{INT64_MAX, 0}));
}

TEST(Natoi, NegativeNumberIsRead) {
  EXPECT_EQ(read<long>("-42"), (Long_Outcome{-42, 0}));
}

TEST(Natoi, ZeroIsNoError) {
  EXPECT_EQ(read<long>("0"), (Long_Outcome{0, 0}));
}

TEST(Natoi, TrailingTextEndsTheNumberWithoutAnError) {
  EXPECT_EQ(read<long>("12ab"), (Long_Outcome{12, 0}));
}

TEST(Natoi, LeadingBlankIsInvalid) {
  EXPECT_EQ(read<long>(" 12"), (Long_Outcome{0, EINVAL}));
}

TEST(Natoi, SignAloneIsInvalid) {
  EXPECT_EQ(read<long>("-"), (Long_Outcome{0, EINVAL}));
  EXPECT_EQ(read<long>("+"), (Long_Outcome{0, EINVAL}));
}

TEST(Natoi, SecondSignIsInvalid) {
  EXPECT_EQ(read<long>("+-1"), (Long_Outcome{0, EINVAL}));
}

TEST(Natoi, ByteAboveAsciiIsNoDigit) {
  EXPECT_EQ(read<long>("1\xb2"), (Long_Outcome{1, 0}));
}

TEST(Natoi, SmallSignedTypeKeepsItsBounds) {
  EXPECT_EQ(read<signed char>("-128"), (Outcome<signed char>{-128, 0}));
  EXPECT_EQ(read<signed char>("128"), (Outcome<signed char>{127, ERANGE}));
}

TEST(Natoi, LargestUnsignedLongIsRead) {
  EXPECT_EQ(read<unsigned long>("18446744073709551615"), (Outcome<unsigned long>{UINT64_MAX, 0}));
  EXPECT_EQ(read<unsigned long>("18446744073709551616"), (Outcome<unsigned long>{UINT64_MAX, ERANGE}));
}

TEST(Natoi, EndStopsTheNumber) {
  const char* text = "12345";
  EXPECT_EQ(natoi<long>(text, text + 3, nullptr), 123);
}

TEST(Natoi, EmptyRangeIsInvalid) {
  const char* text = "+1";
  EXPECT_EQ(natoi<long>(text, text, nullptr), 0);
  EXPECT_EQ(errno, EINVAL);
}

TEST(Natoi, StopIsTold) {
  const char* text = "80/tcp";
  const char* stop = nullptr;
  EXPECT_EQ(natoi<unsigned short>(text, nullptr, &stop), 80);
  EXPECT_EQ(stop, text + 2);
}

TEST(Natoi, StopIsTheBeginningWhenTheSignIsRefused) {
  const char* text = "-1";
  const char* stop = nullptr;
  natoi<unsigned short>(text, nullptr, &stop);
  EXPECT_EQ(stop, text);
}

TEST(Natoi, StopIsTheDigitThatNoLongerFits) {
  const char* text = "655360";
  const char* stop = nullptr;
  natoi<unsigned short>(text, nullptr, &stop);
  EXPECT_EQ(stop, text + 4);
}

}  // namespace
