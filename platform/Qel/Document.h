#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Qel/Entity.h"
#include "Qel/Exception.h"
#include "Qel/Name.h"
#include "Qel/Ptr.h"
#include "Qel/String.h"
#include "Qel/Types.h"

namespace Qel {

// A value of a state-database document, independent of how a store writes it: null, bool, signed or
// unsigned integer, number, text, list, or map in the order of its members.
class Document {
 public:
  using List = std::vector<Document>;
  using Map = std::vector<std::pair<String, Document>>;

  Document() = default;
  Document(bool value) : value_(value) {}
  Document(std::int64_t value) : value_(value) {}
  Document(std::uint64_t value) : value_(value) {}
  Document(U32 value) : value_(std::uint64_t{value}) {}
  Document(double value) : value_(value) {}
  Document(String value) : value_(std::move(value)) {}
  Document(const char* value) : value_(String(value)) {}
  Document(List value) : value_(std::move(value)) {}
  Document(Map value) : value_(std::move(value)) {}

  bool isNull() const noexcept { return std::holds_alternative<std::monostate>(value_); }
  // The value as a T, or null when it is of another kind.
  template <class T>
  const T* as() const noexcept {
    return std::get_if<T>(&value_);
  }
  // The member of a map, or null when there is none or this is no map.
  const Document* member(std::string_view name) const noexcept;
  // That member as a T, or null when it is absent or of another kind.
  template <class T>
  const T* memberAs(std::string_view name) const noexcept {
    const Document* found = member(name);
    return found == nullptr ? nullptr : found->as<T>();
  }
  // What kind of value this is, for messages: "null", "a bool", "an integer", ...
  const char* kind() const noexcept;

  friend bool operator==(const Document& a, const Document& b) = default;

 private:
  std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, String, List, Map> value_;
};

// A document that does not fit its type; the text begins with the place, as in
// "/rebootHistory/0/causeQ/1/time: expected a number but found a text".
class DocumentException : public Exception {
 public:
  DocumentException(std::string_view place, std::string_view problem);
  ~DocumentException() override;
};

// Reads one value of a document and finds its place for the message when it does not fit. A child
// reader refers to its parent's document, not to the parent.
class DocumentReader {
 public:
  explicit DocumentReader(const Document& document) : DocumentReader(document, document) {}

  // The way to the value, as "/rebootHistory/0"; empty for the whole document. It is searched for:
  // most readers are never asked.
  std::string place() const;
  const Document& document() const noexcept { return *document_; }

  // Each raises DocumentException when the value is of another kind or outside the range.
  bool readBool() const;
  U32 readU32() const;
  double readFiniteNumber() const;
  String readText(std::size_t mostBytes) const;
  std::vector<DocumentReader> readList(std::size_t mostItems) const;
  // The members, in order, with the reader of each; names are unescaped.
  std::vector<std::pair<String, DocumentReader>> readMap(std::size_t mostMembers) const;

  // The member of that name; `member` raises when it is absent.
  DocumentReader member(std::string_view name) const;
  std::optional<DocumentReader> optionalMember(std::string_view name) const;
  // Raises when the map has a member that is not in `names`.
  void needOnly(std::initializer_list<std::string_view> names) const;

  [[noreturn]] void fail(std::string_view problem) const;

 private:
  DocumentReader(const Document& whole, const Document& value)
      : whole_(&whole), document_(&value) {}
  const Document::Map& map() const;

  const Document* whole_;
  const Document* document_;
};

// How a registered type meets the state database. Found through TypeNode::documentCodec.
class DocumentCodec {
 public:
  // One field of the flat form that stores of fields keep: name and value, any octets.
  using Fields = std::vector<std::pair<std::string, std::string>>;
  // Makes an entity equal to the document that it was decoded from, in place, with one notification
  // for each thing that changed.
  //
  // Each thing is changed and told of in a step of its own, which raises what its notifiees raise.
  // Whoever applies the change runs the steps, and so decides whether the rest follows.
  using Step = std::function<void()>;
  using RunStep = std::function<void(const Step&)>;
  using Change = std::function<void(Entity&, const RunStep&)>;

  virtual ~DocumentCodec() = default;

  // Where documents of the type stand by convention: the end of their paths, whole names, or empty.
  // A store that keeps no type with the fields goes by it.
  virtual std::string_view pathEnd() const { return {}; }
  // An entity of the type, empty: what stands before anything is published.
  virtual Ptr<Entity> newEntity(const Name& name) const = 0;
  // Checks the whole document before anything changes. Raises DocumentException.
  virtual Change decode(const Document& document) const = 0;
  // The flat form of a document that decodes, and back; the latter raises DocumentException naming
  // the field. documentOf(fieldsOf(d)) decodes to the same entity as d.
  virtual Fields fieldsOf(const Document& document) const = 0;
  virtual Document documentOf(const Fields& fields) const = 0;
  // The same as documentOf(fieldsOf(document)).
  virtual Document canonicalFormOf(const Document& document) const {
    return documentOf(fieldsOf(document));
  }
};

}  // namespace Qel
