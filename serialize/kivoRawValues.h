// Internal: the value text of the stream raw format, one member's values at
// a time. Writing: booleans as "true"/"false", numbers with the output
// stream's settings (8-bit integers as numbers, floats widened to double),
// matrices as sixteen entries row after row, strings in double quotes with
// \" \\ and \n escapes. Reading: the inverse, whitespace of any kind between
// values, every value range-checked to its type.
#pragma once

#include <kivo/data/kivoDataMember.h>

#include <iosfwd>
#include <string>

namespace kivo::Detail {

// "Member at record R not recognized as a WORD" and a newline.
std::string memberNotRecognized(unsigned int record, Data::Member::eDataType type);

// Writes the length values of a member of type stored at values (matrices:
// sixteen entries each), separated by single blanks. Nothing for a type above
// 13. Values are copied out of the block, which need not be aligned.
void writeRawValues(std::ostream& output, Data::Member::eDataType type, const char* values,
                    unsigned int length);

// Reads length values of type into values. Returns the number of errors: a
// member stops at its first bad value, except that a matrix reports and
// counts each bad entry and stores the good ones. Appends one message line
// per error to errors; record numbers the element in number messages. After
// a bad value the input's error state is cleared and the rest of the bad
// word dropped. A string replaces (frees) the string it overwrites.
int readRawValues(std::istream& input, Data::Member::eDataType type, char* values,
                  unsigned int length, unsigned int record, std::string& errors);

// The fast forms of the two above, for callers that have checked that they
// give the same text and values as the stream code.
//
// Appends what writeRawValues writes to a stream with default flags, width
// 0, a locale without grouping and the given precision (0 to
// kMaxFastPrecision).
void appendRawValues(std::string& out, Data::Member::eDataType type, const char* values,
                     unsigned int length, int precision);

// Reads length values of type from the text [p, end) when each is in
// strict form (see kivoFastText.h; booleans one of the accepted words,
// strings closed on the same text) and fits its type; returns the end of
// the last value. Null when anything is not: the caller must then read the
// same text again with readRawValues, which stores the same values before
// the first one that is not and reports that one exactly. Values read
// before a null result may already be stored.
const char* readRawValuesStrict(const char* p, const char* end, Data::Member::eDataType type,
                                char* values, unsigned int length);

}  // namespace kivo::Detail
