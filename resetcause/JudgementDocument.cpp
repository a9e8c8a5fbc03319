// A judgement as a document, and back.
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Qel/Document.h"
#include "Qel/Limits.h"
#include "resetcause/Judgement.h"

namespace ResetCause {

namespace {

using Qel::Document;
using Qel::DocumentReader;
using Qel::String;

constexpr std::size_t kMostItems = 20000;
constexpr std::size_t kMostOctets = Qel::Limits::kMostTextOctets;

// What is not there is left out.
class MapOf {
 public:
  MapOf& text(const char* name, const std::string& value) {
    if (!value.empty()) map_.emplace_back(name, String(value));
    return *this;
  }
  MapOf& time(const char* name, const std::optional<double>& value) {
    if (value) map_.emplace_back(name, *value);
    return *this;
  }
  MapOf& value(const char* name, Document value) {
    map_.emplace_back(name, std::move(value));
    return *this;
  }
  Document done() { return std::move(map_); }

 private:
  Document::Map map_;
};

std::string textIn(const DocumentReader& reader, std::string_view name) {
  const auto value = reader.optionalMember(name);
  return value ? value->readText(kMostOctets).stdString() : std::string();
}

double timeOf(const DocumentReader& reader) {
  const double time = reader.readFiniteNumber();
  if (!isTime(time)) reader.fail("it is no time");
  return time;
}

std::optional<double> timeIn(const DocumentReader& reader, std::string_view name) {
  const auto value = reader.optionalMember(name);
  return value ? std::optional(timeOf(*value)) : std::nullopt;
}

// The value that has the name, of those that can have one.
template <class Named>
Named namedIn(const DocumentReader& reader, std::string_view member, std::size_t count) {
  const std::string text = textIn(reader, member);
  for (std::size_t i = 0; i < count; ++i) {
    if (nameOf(static_cast<Named>(i)) == text) return static_cast<Named>(i);
  }
  reader.member(member).fail("there is no such name");
}

Document documentOf(const Evidence& one) {
  return MapOf()
      .text("kind", std::string(nameOf(one.kind)))
      .text("source", one.source)
      .text("place", one.place)
      .text("text", one.text)
      .time("time", one.time)
      .text("user", one.user)
      .text("way", one.way)
      .value("old", one.isOld)
      .done();
}

Evidence evidenceIn(const DocumentReader& reader) {
  Evidence one{namedIn<Kind>(reader, "kind", kKinds), textIn(reader, "source"),
               textIn(reader, "place"), textIn(reader, "text"), timeIn(reader, "time")};
  one.user = textIn(reader, "user");
  one.way = textIn(reader, "way");
  one.isOld = reader.member("old").readBool();
  return one;
}

Document documentOf(const Cause& cause) {
  Document::List evidence;
  for (const Evidence& one : cause.evidence) evidence.push_back(documentOf(one));
  return MapOf()
      .text("cause", cause.text)
      .text("rule", cause.rule)
      .text("confidence", std::string(nameOf(cause.confidence)))
      .time("time", cause.time)
      .time("since", cause.since)
      .text("orElse", cause.elseBe)
      .text("recommendedAction", cause.action)
      .value("evidence", std::move(evidence))
      .done();
}

Cause causeIn(const DocumentReader& reader) {
  constexpr std::size_t kConfidences = 4;
  Cause cause{.rule = textIn(reader, "rule"),
              .text = textIn(reader, "cause"),
              .confidence = namedIn<Confidence>(reader, "confidence", kConfidences),
              .time = timeIn(reader, "time"),
              .since = timeIn(reader, "since"),
              .elseBe = textIn(reader, "orElse"),
              .action = textIn(reader, "recommendedAction")};
  for (const DocumentReader& one : reader.member("evidence").readList(kMostItems)) {
    cause.evidence.push_back(evidenceIn(one));
  }
  return cause;
}

Document documentOf(const Boots& boots) {
  return MapOf()
      .text("id", boots.id)
      .time("start", boots.start)
      .text("previousId", boots.previousId)
      .time("previousStart", boots.previousStart)
      .time("lastSign", boots.lastSign)
      .done();
}

Boots bootsIn(const DocumentReader& reader) {
  return {textIn(reader, "id"), timeOf(reader.member("start")), textIn(reader, "previousId"),
          timeIn(reader, "previousStart"), timeIn(reader, "lastSign")};
}

template <class Texts>
Document listOf(const Texts& texts) {
  Document::List list;
  for (const std::string& text : texts) list.emplace_back(String(text));
  return list;
}

std::vector<std::string> textsIn(const DocumentReader& reader, std::string_view name) {
  std::vector<std::string> texts;
  for (const DocumentReader& one : reader.member(name).readList(kMostItems)) {
    texts.push_back(one.readText(kMostOctets).stdString());
  }
  return texts;
}

Findings::Marks marksIn(const DocumentReader& reader, std::string_view name) {
  const auto texts = textsIn(reader, name);
  return {texts.begin(), texts.end()};
}

}  // namespace

Document documentOf(const Judgement& judgement) {
  Document::List causes{documentOf(judgement.verdict.cause)};
  for (const Cause& cause : judgement.verdict.beside) causes.push_back(documentOf(cause));
  return MapOf()
      .value("boots", documentOf(judgement.boots))
      .value("causes", std::move(causes))
      .value("notes", listOf(notesOf(judgement.boots)))
      .value("problems", listOf(judgement.problems))
      .value("known", listOf(judgement.known))
      .value("seen", listOf(judgement.seen))
      .done();
}

Judgement judgementOf(const Document& document) {
  const DocumentReader reader(document);
  Judgement judgement{.boots = bootsIn(reader.member("boots")),
                      .problems = textsIn(reader, "problems"),
                      .known = marksIn(reader, "known"),
                      .seen = marksIn(reader, "seen")};
  const auto causes = reader.member("causes").readList(kMostItems);
  if (causes.empty()) reader.member("causes").fail("there is none");
  judgement.verdict.cause = causeIn(causes.front());
  for (auto cause = causes.begin() + 1; cause != causes.end(); ++cause) {
    judgement.verdict.beside.push_back(causeIn(*cause));
  }
  return judgement;
}

}  // namespace ResetCause
