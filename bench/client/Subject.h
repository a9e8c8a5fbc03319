#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Qel/Types.h"

namespace Bench {

// A name that is asked for, and the name of the value that has to be answered.
struct Asked {
  std::string name;
  std::string answer;
};

// What is measured: a table of `rows` rows (an even number, half of them under unit 0 and half
// under unit 1) or a row of scalars, below 1.3.6.1.4.1.32473.3.`node`.1.1.
class Subject {
 public:
  static Subject table(const char* title, U32 node, U32 rows);
  static Subject scalars(const char* title, U32 node);

  const char* title() const noexcept { return title_; }
  std::uint64_t values() const noexcept { return scalar_ ? rows_ : std::uint64_t{2} * rows_; }
  bool isScalar() const noexcept { return scalar_; }

  // A value by its own name; `row` counts from 0, and any number names a row.
  Asked get(std::uint64_t row) const;
  // A value by what stands before it: the row before in a table, the object of a scalar.
  Asked getNext(std::uint64_t row) const;
  // The time of the row.
  std::string timeOf(std::uint64_t row) const;
  // A row behind those of unit 0 that a table does not have.
  std::string missing() const;
  // What a walk begins with, and the last value that it finds.
  std::string root() const;
  std::string last() const;

 private:
  Subject(const char* title, U32 node, U32 rows, bool scalar)
      : title_(title), node_(node), rows_(rows), scalar_(scalar) {}

  std::string cell(U32 column, std::uint64_t row) const;
  std::string scalar(std::uint64_t number) const;

  const char* title_;
  U32 node_;
  U32 rows_;
  bool scalar_;
};

// The reload-cause table first, then the anchors.
std::vector<Subject> subjects(U32 rows);

}  // namespace Bench
