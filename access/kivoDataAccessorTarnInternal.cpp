#include "access/kivoDataAccessorTarnInternal.h"

#include <cwchar>

#include <kivo/data/kivoDataStructure.h>

namespace kivo::Detail {
namespace {

// A control character as a backslash and a letter, or three octal digits.
void escapeControl(unsigned int code, std::string& out) {
  out += '\\';
  switch (code) {
    case 10: out += 'n'; return;
    case 8: out += 'b'; return;
    case 9: out += 't'; return;
    case 7: out += 'a'; return;
    case 12: out += 'f'; return;
    case 11: out += 'v'; return;
    case 13: out += 'r'; return;
    default:
      out += static_cast<char>('0' + ((code >> 6) & 7));
      out += static_cast<char>('0' + ((code >> 3) & 7));
      out += static_cast<char>('0' + (code & 7));
  }
}

}  // namespace

void appendMessage(std::string& errors, const std::string& message) {
  if (!errors.empty() && errors.back() != '\n') errors += '\n';
  errors += message;
}

WantedNames::WantedNames(const std::set<std::string>* names)
    : fSelective(names != nullptr), fNames(names ? *names : std::set<std::string>()) {}

bool WantedNames::take(const std::string& name) {
  if (!fSelective) return true;
  return fNames.erase(name) > 0;
}

void keepStructureIfWanted(std::unique_ptr<Data::Structure> structure, WantedNames& wanted) {
  if (!wanted.take(structure->name())) return;
  // The registry takes its own reference; a refused duplicate is destroyed
  // with the unique_ptr.
  if (Data::Structure::registerStructure(*structure)) structure.release();
}

// A structure text keeps every character but the line feed, written as "\n".
std::string escapeAsciiStructureText(const std::string& text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    if (c == '\n') {
      escaped += "\\n";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

// An associations text, character by character in the current C locale:
// control characters as escapes, '"' and '\' behind a backslash, every other
// character copied. A byte that starts no valid character is copied alone,
// so the walk always moves on.
std::string escapeAsciiValue(const std::string& text) {
  std::string escaped;
  escaped.reserve(text.size() + text.size() / 8);
  std::mbstate_t state{};
  size_t i = 0;
  while (i < text.size()) {
    wchar_t wide = 0;
    size_t length = std::mbrtowc(&wide, text.data() + i, text.size() - i, &state);
    if (length == static_cast<size_t>(-1) || length == static_cast<size_t>(-2)) {
      escaped += text[i++];
      state = std::mbstate_t{};
      continue;
    }
    if (length == 0) length = 1;  // the NUL character
    if (static_cast<uint32_t>(wide) < 32 || wide == 127) {  // codes 0-31 and 127
      escapeControl(static_cast<unsigned int>(wide), escaped);
    } else if (wide == L'"' || wide == L'\\') {
      escaped += '\\';
      escaped += static_cast<char>(wide);
    } else {
      escaped.append(text, i, length);
    }
    i += length;
  }
  return escaped;
}

// The one unescaping rule of both payloads: "\n" "\b" "\t" "\a" "\f" "\v"
// "\r" give their control characters, a backslash and up to three octal
// digits the character of that value (its low eight bits), a backslash and
// anything else that character; a backslash at the very end stays.
std::string unescapeAsciiPayload(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      out += text[i];
      continue;
    }
    if (i + 1 == text.size()) {
      out += '\\';
      break;
    }
    const char next = text[++i];
    switch (next) {
      case 'n': out += '\n'; break;
      case 'b': out += '\b'; break;
      case 't': out += '\t'; break;
      case 'a': out += '\a'; break;
      case 'f': out += '\f'; break;
      case 'v': out += '\v'; break;
      case 'r': out += '\r'; break;
      default:
        if (next >= '0' && next <= '7') {
          unsigned int value = 0;
          int digits = 0;
          while (digits < 3 && i < text.size() && text[i] >= '0' && text[i] <= '7') {
            value = value * 8 + static_cast<unsigned int>(text[i] - '0');
            ++i;
            ++digits;
          }
          --i;
          out += static_cast<char>(value & 0xFF);
        } else {
          out += next;
        }
    }
  }
  return out;
}

}  // namespace kivo::Detail
