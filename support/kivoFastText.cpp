#include "support/kivoFastText.h"

#include <cstring>

namespace kivo::Detail {
namespace {

using Wide = unsigned __int128;

constexpr int kMaxDirectPrecision = 17;  // digits that fit one 64-bit number
constexpr int kMaxPowerOfTen = 38;       // the largest power of ten below 2^128

constexpr Wide powerOfTen(int n) {
  Wide value = 1;
  for (int i = 0; i < n; ++i) value *= 10;
  return value;
}

struct PowersOfTen {
  Wide value[kMaxPowerOfTen + 1];
  constexpr PowersOfTen() : value() {
    for (int i = 0; i <= kMaxPowerOfTen; ++i) value[i] = powerOfTen(i);
  }
};
constexpr PowersOfTen kPowers;

int bitLength(Wide x) {
  const uint64_t high = static_cast<uint64_t>(x >> 64);
  if (high) return 128 - __builtin_clzll(high);
  const uint64_t low = static_cast<uint64_t>(x);
  return low ? 64 - __builtin_clzll(low) : 0;
}

enum class Quotient { kOk, kTooLarge, kTooSmall, kNoRoom };

// The value m * 2^e divided by 10^s, rounded half to even, when the exact
// arithmetic fits 128 bits; kTooLarge / kTooSmall when the quotient does
// not have `precision` digits, so that the decimal exponent was guessed
// wrong.
Quotient scaledDigits(uint64_t m, int e, int s, int precision, uint64_t& digits) {
  Wide numerator = m;
  Wide denominator = 1;
  int shift = 0;  // denominator is 2^shift when the power of ten is in the numerator
  if (s <= 0) {
    if (-s > kMaxPowerOfTen || bitLength(numerator) + bitLength(kPowers.value[-s]) > 127)
      return Quotient::kNoRoom;
    numerator *= kPowers.value[-s];
    if (e >= 0) {
      if (bitLength(numerator) + e > 127) return Quotient::kNoRoom;
      numerator <<= e;
    } else {
      shift = -e;
      if (shift > 126) return Quotient::kNoRoom;
    }
  } else {
    if (s > kMaxPowerOfTen) return Quotient::kNoRoom;
    denominator = kPowers.value[s];
    if (e >= 0) {
      if (bitLength(numerator) + e > 127) return Quotient::kNoRoom;
      numerator <<= e;
    } else {
      if (bitLength(denominator) - e > 126) return Quotient::kNoRoom;
      denominator <<= -e;
    }
  }
  Wide quotient, remainder;
  bool above, half;
  if (shift > 0) {
    quotient = numerator >> shift;
    remainder = numerator & ((Wide(1) << shift) - 1);
    const Wide midpoint = Wide(1) << (shift - 1);
    above = remainder > midpoint;
    half = remainder == midpoint;
  } else {
    quotient = numerator / denominator;
    remainder = numerator % denominator;
    above = 2 * remainder > denominator;
    half = 2 * remainder == denominator;
  }
  if (quotient >= kPowers.value[precision]) return Quotient::kTooLarge;
  if (quotient < kPowers.value[precision - 1]) return Quotient::kTooSmall;
  if (above || (half && (quotient & 1))) ++quotient;
  digits = static_cast<uint64_t>(quotient);
  return Quotient::kOk;
}

// "%.<precision>g" of a finite, non-zero, normal value with at most 17
// significant digits; null when the exact arithmetic does not fit.
char* formatDirect(char* out, double value, int precision) {
  uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  const bool negative = bits >> 63;
  const int biased = static_cast<int>((bits >> 52) & 0x7FF);
  if (biased == 0 || biased == 0x7FF) return nullptr;  // zero, subnormal, inf, nan
  const uint64_t m = (bits & ((uint64_t(1) << 52) - 1)) | (uint64_t(1) << 52);
  const int e = biased - 1075;  // value = m * 2^e, 2^52 <= m < 2^53
  // log10 of the value lies in [(e + 52) log10(2), (e + 53) log10(2)).
  int k = static_cast<int>(((e + 52) * 78913) >> 18);  // floor((e + 52) * log10(2))
  uint64_t digits = 0;
  for (int attempt = 0;; ++attempt) {
    const Quotient q = scaledDigits(m, e, k - precision + 1, precision, digits);
    if (q == Quotient::kOk) break;
    if (q == Quotient::kNoRoom || attempt == 2) return nullptr;
    k += q == Quotient::kTooLarge ? 1 : -1;
  }
  if (digits == static_cast<uint64_t>(kPowers.value[precision])) {  // rounded up to 10^precision
    digits /= 10;
    ++k;
  }
  char text[kMaxDirectPrecision];
  for (int i = precision - 1; i >= 0; --i) {
    text[i] = static_cast<char>('0' + digits % 10);
    digits /= 10;
  }
  int significant = precision;
  while (significant > 1 && text[significant - 1] == '0') --significant;

  if (negative) *out++ = '-';
  if (k < precision && k >= -4) {
    if (k >= 0) {
      std::memcpy(out, text, k + 1);
      out += k + 1;
      if (significant > k + 1) {
        *out++ = '.';
        std::memcpy(out, text + k + 1, significant - k - 1);
        out += significant - k - 1;
      }
    } else {
      *out++ = '0';
      *out++ = '.';
      for (int i = -1; i > k; --i) *out++ = '0';
      std::memcpy(out, text, significant);
      out += significant;
    }
    return out;
  }
  *out++ = text[0];
  if (significant > 1) {
    *out++ = '.';
    std::memcpy(out, text + 1, significant - 1);
    out += significant - 1;
  }
  *out++ = 'e';
  *out++ = k < 0 ? '-' : '+';
  const int exponent = k < 0 ? -k : k;
  if (exponent >= 100) *out++ = static_cast<char>('0' + exponent / 100);
  *out++ = static_cast<char>('0' + exponent / 10 % 10);
  *out++ = static_cast<char>('0' + exponent % 10);
  return out;
}

}  // namespace

char* formatGeneral(char* buffer, double value, int precision) {
  const int digits = precision == 0 ? 1 : precision;
  if (digits <= kMaxDirectPrecision) {
    if (char* end = formatDirect(buffer, value, digits)) return end;
  }
  return std::to_chars(buffer, buffer + kNumberBuffer, value, std::chars_format::general,
                       precision)
      .ptr;
}

}  // namespace kivo::Detail
