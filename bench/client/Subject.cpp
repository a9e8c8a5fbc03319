#include "bench/client/Subject.h"

#include "bench/client/Message.h"

namespace Bench {
namespace {

constexpr U32 kDescription = 4;
constexpr U32 kTime = 5;
constexpr U32 kScalars = 100;

}  // namespace

Subject Subject::table(const char* title, U32 node, U32 rows) { return {title, node, rows, false}; }

Subject Subject::scalars(const char* title, U32 node) { return {title, node, kScalars, true}; }

std::string Subject::cell(U32 column, std::uint64_t row) const {
  const U32 causes = rows_ / 2;
  const auto place = static_cast<U32>(row % rows_);
  return nameOf(
      {6, 1, 4, 1, 32473, 3, node_, 1, 1, 1, column, place / causes, 0, 1 + place % causes});
}

std::string Subject::scalar(std::uint64_t number) const {
  return nameOf({6, 1, 4, 1, 32473, 3, node_, 1, 1, static_cast<U32>(1 + number % rows_)});
}

Asked Subject::get(std::uint64_t row) const {
  const std::string name = scalar_ ? scalar(row) + '\0' : cell(kDescription, row);
  return {name, name};
}

Asked Subject::getNext(std::uint64_t row) const {
  if (scalar_) return {scalar(row), scalar(row) + '\0'};
  const std::uint64_t before = row % (rows_ - 1);
  return {cell(kDescription, before), cell(kDescription, before + 1)};
}

std::string Subject::timeOf(std::uint64_t row) const { return cell(kTime, row); }

std::string Subject::missing() const {
  return nameOf({6, 1, 4, 1, 32473, 3, node_, 1, 1, 1, kDescription, 0, 0, rows_ / 2 + 1});
}

std::string Subject::root() const { return nameOf({6, 1, 4, 1, 32473, 3, node_, 1, 1}); }

std::string Subject::last() const {
  return scalar_ ? get(kScalars - 1).name : cell(kTime, rows_ - 1);
}

std::vector<Subject> subjects(U32 rows) {
  return {Subject::table("ours", 24, rows), Subject::table("tdata", 25, rows),
          Subject::table("sorted", 26, rows), Subject::table("map", 27, rows),
          Subject::scalars("scalar", 28)};
}

}  // namespace Bench
