#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/ExpectedPlatform.h"

namespace expected {

// A document as somebody published it: its type, whether it fits that type and, for a history that
// fits, its reloads.
struct Document {
  std::string type;
  bool fits = true;
  std::map<Number, std::vector<Cause>> reloads;
};

inline constexpr char kHistoryType[] = "System::ResetCauseHistory";

// The state database, and the mounts of histories that were begun on it.
//
// A mount completes with its history once a document of a history stands at its path, with null
// when one of another type does: from settle() for what stands already, else from publish(). It
// waits for a path that is not published and passes over a history that does not fit. From then on
// its history follows the path; what is unpublished, misshapen or of another type leaves it as it
// was last seen. A mount that nobody holds any more is cancelled.
class Database {
 public:
  class Mount {
   public:
    using Complete = std::function<void(const HistoryPtr& history)>;

    // While it is off, completion waits; once it is on again, for settle().
    void isOn(bool on);

   private:
    friend class Database;
    enum class Stage { begins, waits, isDue, isComplete };

    Database* database = nullptr;
    std::string path;
    Complete complete;
    Stage stage = Stage::begins;
    bool on = true;
    HistoryPtr history = std::make_shared<History>();
    HistoryPtr result;
    std::weak_ptr<Mount> self;
  };
  using MountPtr = std::shared_ptr<Mount>;

  // Called after a mounted history, or the causes of a reload in one, changed.
  struct Told {
    std::function<void(const History&)> historyChanged;
    std::function<void(const Reload&)> causesChanged;
  };
  explicit Database(Told told) : told_(std::move(told)) {}

  MountPtr mount(const std::string& path, Mount::Complete complete);
  void publish(const std::string& path, const Document& document);
  void unpublish(const std::string& path) { served_.erase(path); }
  // Does what the event loop does when it has time.
  void settle();

 private:
  void begin(Mount& mount);
  void see(Mount& mount, const Document& document);
  void complete(Mount& mount);
  void apply(History& history, const Document& document);

  Told told_;
  // At each path the last document that fits; one that does not where there never was another.
  std::map<std::string, Document> served_;
  std::vector<std::weak_ptr<Mount>> mounts_;
  std::deque<std::weak_ptr<Mount>> tasks_;
};

}  // namespace expected
