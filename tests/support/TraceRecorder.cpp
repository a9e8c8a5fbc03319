#include "support/TraceRecorder.h"

namespace support {

TraceRecorder::TraceRecorder(std::initializer_list<std::pair<const char*, int>> levels) {
  for (const auto& [facility, level] : levels) levelIs(facility, level);
  Qel::traceSinkIs([this](const Qel::TraceRecord& record) {
    records_.push_back(record);
    lines_.push_back(record.facility.stdString() + " " + std::to_string(record.level) + ": " +
                     record.text.stdString());
  });
}

TraceRecorder::~TraceRecorder() {
  Qel::traceSinkIs({});
  for (const std::string& facility : facilities_) Qel::traceLevelIs(facility, 0);
}

void TraceRecorder::levelIs(const std::string& facility, int level) {
  facilities_.insert(facility);
  Qel::traceLevelIs(facility, level);
}

void TraceRecorder::note(std::string line) { lines_.push_back(std::move(line)); }

std::vector<std::string> TraceRecorder::texts() const {
  std::vector<std::string> texts;
  for (const Qel::TraceRecord& record : records_) texts.push_back(record.text.stdString());
  return texts;
}

std::vector<std::string> TraceRecorder::takeLines() {
  std::vector<std::string> taken;
  taken.swap(lines_);
  records_.clear();
  return taken;
}

void TraceRecorder::clear() { takeLines(); }

}  // namespace support
