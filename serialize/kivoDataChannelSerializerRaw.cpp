#include <kivo/serialize/kivoDataChannelSerializerRaw.h>

#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataChannelIterator.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/serialize/kivoDataSerializerInitializer.h>
#include <kivo/serialize/kivoDataSerializerRaw.h>
#include <kivo/serialize/kivoDataStreamSerializerRaw.h>

#include "serialize/kivoRawText.h"
#include "support/kivoMessages.h"

namespace kivo::Data {
namespace {

using Raw = SerializerRaw;

std::string missingKeyword(std::istream& input) {
  return "Missing Channel keyword" + Detail::onOrAbout(Detail::inputPosition(input)) + "\n";
}
std::string unrecognizedKeyword(const std::string& word, std::istream& input) {
  return "Unrecognized keyword '" + word + "'" +
         Detail::onOrAbout(Detail::inputPosition(input)) + "\n";
}
std::string nullStream(unsigned int slot) {
  return "Null stream at element " + std::to_string(slot) + " will be skipped.\n";
}

const SerializerInitializer<ChannelSerializerRaw> registration;

}  // namespace

ChannelSerializerRaw::ChannelSerializerRaw() { setDefaultFormat(this); }

ChannelSerializerRaw::~ChannelSerializerRaw() = default;

const char* ChannelSerializerRaw::formatType() const { return Raw::keyword(Raw::kRaw); }

Channel* ChannelSerializerRaw::read(std::istream& input, std::string& errors) const {
  input >> std::skipws;
  std::string messages;
  unsigned long count = 0;
  bool named = false;
  std::string name;
  // The channel is built at the end, once its name is known.
  std::vector<std::unique_ptr<Stream>> streams;
  std::string word;
  std::string rest;
  for (;;) {
    word.clear();
    Detail::readWord(input, word);
    if (!Detail::readRestOfLine(input, rest)) {
      messages += missingKeyword(input);
      ++count;
      break;
    }
    if (word == Raw::keyword(Raw::kStream)) {
      std::unique_ptr<Stream> stream(StreamSerializerRaw::theFormat()->read(input, errors));
      if (stream) {
        streams.push_back(std::move(stream));
      } else {
        ++count;
      }
    } else if (word == Raw::keyword(Raw::kEndChannel)) {
      break;
    } else if (word == Raw::keyword(Raw::kAssociationsName)) {
      name = Raw::collapseWhitespace(rest);
      named = true;
    } else if (!word.empty()) {
      messages += unrecognizedKeyword(word, input);
      ++count;
      break;
    }
  }
  if (count != 0) {
    errors += messages + Detail::errorSummary(count, " found, Channel not created") + "\n";
    return nullptr;
  }
  std::unique_ptr<Channel> channel(named ? new Channel(name) : new Channel());
  for (const std::unique_ptr<Stream>& stream : streams) channel->setDataStream(*stream);
  return channel.release();
}

int ChannelSerializerRaw::write(const Channel& channel, std::ostream& output,
                                std::string& errors) const {
  output << Raw::keyword(Raw::kAssociationsName) << ' ' << channel.name() << '\n';
  std::string text;
  int count = 0;
  unsigned int slot = 0;
  for (ChannelIterator stream = channel.begin(); stream.valid(); ++stream, ++slot) {
    if (!*stream) {
      text += nullStream(slot);
      ++count;
      continue;
    }
    output << Raw::keyword(Raw::kStream) << '\n';
    count += StreamSerializerRaw::theFormat()->write(**stream, output, errors);
  }
  output << Raw::keyword(Raw::kEndChannel) << '\n';
  if (count != 0) {
    errors += text +
              Detail::errorSummary(count, " found, Channel may not be written correctly") + "\n";
  }
  return count;
}

void ChannelSerializerRaw::getFormatDescription(std::ostream& output) const {
  const char* const stream = Raw::keyword(Raw::kStream);
  const char* const end = Raw::keyword(Raw::kEndChannel);
  output << "The " << formatType()
         << " format consists of a Channel name followed by an optional index\n"
         << " type followed by a list of streams and a marker which indicates\n"
         << " the end of the channel data. The stream data consists of two or\n"
         << "more lines in the following pattern:\n"
         << '\t' << stream << '\n'
         << "\t{FORMATTED_STREAM_DATA}\n"
         << "terminated with a line containing the literal text:\n"
         << '\t' << end << '\n'
         << "Any text after the terminator will not be read.\n"
         << "If the index type is omitted a standard numerical index is used.\n"
         << '\n'
         << "Here is a sample of a channel 'C1' with two streams:\n"
         << '\t' << Raw::keyword(Raw::kAssociationsName) << " C1\n"
         << '\t' << stream << '\n'
         << "\t{FORMATTED_STREAM_DATA}\n"
         << '\t' << stream << '\n'
         << "\t{FORMATTED_STREAM_DATA}\n"
         << '\t' << end << '\n'
         << '\n'
         << "See the documentation for the " << formatType() << " stream serialization\n"
         << "format for a detailed description of the \n"
         << "{FORMATTED_STREAM_DATA} lines.\n";
}

ChannelSerializerRaw* ChannelSerializerRaw::theFormat() {
  static ChannelSerializerRaw* const instance = new ChannelSerializerRaw();
  return instance;
}

}  // namespace kivo::Data
