#include <kivo/serialize/kivoDataAssociationsSerializerRaw.h>

#include <istream>
#include <memory>
#include <ostream>
#include <string>

#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataAssociationsIterator.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/serialize/kivoDataChannelSerializerRaw.h>
#include <kivo/serialize/kivoDataSerializerInitializer.h>
#include <kivo/serialize/kivoDataSerializerRaw.h>

#include "serialize/kivoRawText.h"
#include "support/kivoMessages.h"

namespace kivo::Data {
namespace {

using Raw = SerializerRaw;

std::string missingKeyword(std::istream& input) {
  return "Missing Associations keyword" + Detail::onOrAbout(Detail::inputPosition(input)) +
         "\n";
}
std::string unrecognizedKeyword(const std::string& word, std::istream& input) {
  return "Unrecognized keyword '" + word + "'" +
         Detail::onOrAbout(Detail::inputPosition(input)) + "\n";
}

const SerializerInitializer<AssociationsSerializerRaw> registration;

}  // namespace

AssociationsSerializerRaw::AssociationsSerializerRaw() { setDefaultFormat(this); }

AssociationsSerializerRaw::~AssociationsSerializerRaw() = default;

const char* AssociationsSerializerRaw::formatType() const { return Raw::keyword(Raw::kRaw); }

Associations* AssociationsSerializerRaw::read(std::istream& input, std::string& errors) const {
  input >> std::skipws;
  std::unique_ptr<Associations> associations(new Associations());
  std::string messages;
  unsigned long count = 0;
  std::string word;
  std::string typeText;
  while (!input.eof()) {
    word.clear();
    Detail::readWord(input, word);
    if (input.fail()) {
      messages += missingKeyword(input);
      ++count;
      break;
    }
    if (word == Raw::keyword(Raw::kChannel)) {
      // The association type after the keyword is not used: the channel's own
      // name line names it.
      Detail::readRestOfLine(input, typeText);
      std::unique_ptr<Channel> channel(ChannelSerializerRaw::theFormat()->read(input, errors));
      if (channel) {
        associations->setChannel(*channel);
      } else {
        ++count;
      }
    } else if (word == Raw::keyword(Raw::kEndAssociations)) {
      break;
    } else if (!word.empty()) {
      messages += unrecognizedKeyword(word, input);
      ++count;
      break;
    }
  }
  if (count != 0) {
    errors += messages + Detail::errorSummary(count, " found, Associations not created") + "\n";
    return nullptr;
  }
  return associations.release();
}

int AssociationsSerializerRaw::write(const Associations& associations, std::ostream& output,
                                     std::string& errors) const {
  int count = 0;
  for (AssociationsIterator channel = associations.begin(); channel.valid(); ++channel) {
    if ((*channel).dataStreamCount() == 0) continue;
    output << Raw::keyword(Raw::kChannel) << '\n';
    count += ChannelSerializerRaw::theFormat()->write(*channel, output, errors);
  }
  output << Raw::keyword(Raw::kEndAssociations) << '\n';
  if (count != 0) {
    errors +=
        Detail::errorSummary(count, " found, Associations may not be written correctly") + "\n";
  }
  return count;
}

void AssociationsSerializerRaw::getFormatDescription(std::ostream& output) const {
  const char* const channel = Raw::keyword(Raw::kChannel);
  const char* const end = Raw::keyword(Raw::kEndAssociations);
  output << "The " << formatType() << " format consists of a list of channels and a marker\n"
         << "indicating the end of the Associations data. Each channel\n"
         << "starts with the literal channel indicator text and the name\n"
         << "of the association type to which the channel is attached:\n"
         << '\t' << channel << " {ASSOCIATION_TYPE}\n"
         << "This is followed by channel data as described by the\n"
         << formatType() << " channel format type.\n"
         << "terminated with a line containing the literal text:\n"
         << '\t' << end << '\n'
         << "Any text after the terminator will not be read.\n"
         << '\n'
         << "Here is a sample of associations with 3 channels:\n"
         << '\t' << channel << " face\n"
         << "\t{CHANNEL_DATA_IN_RAW_FORMAT}[0]\n"
         << '\t' << channel << " vertex\n"
         << "\t{CHANNEL_DATA_IN_RAW_FORMAT}[1]\n"
         << '\t' << channel << " edge\n"
         << "\t{CHANNEL_DATA_IN_RAW_FORMAT}[2]\n"
         << '\t' << end << '\n'
         << '\n'
         << "See the documentation for the " << formatType() << '\n'
         << "channel serialization format for a detailed description\n"
         << "of the {CHANNEL_DATA_IN_RAW_FORMAT} lines.\n";
}

AssociationsSerializerRaw* AssociationsSerializerRaw::theFormat() {
  static AssociationsSerializerRaw* const instance = new AssociationsSerializerRaw();
  return instance;
}

}  // namespace kivo::Data
