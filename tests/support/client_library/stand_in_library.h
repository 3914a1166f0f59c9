#pragma once

#include <dlfcn.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/client_library/stand_in.h"

namespace orrery::test {

/// One of the client libraries that the tests build, with nothing scripted and nothing found out yet. Libraries stay
/// loaded and have one script each in a process, so a test has one object per library. At its end every connection must
/// be closed, every result freed, and every thread must have been made known to the library, after its set-up.
class StandInLibrary {
 public:
  explicit StandInLibrary(const std::string& name)
      : path_(std::string(ORRERY_STAND_IN_LIBRARIES) + "/" + name + ".so"), handle_(dlopen(path_.c_str(), RTLD_LAZY)) {
    if (handle_ == nullptr) throw std::runtime_error(dlerror());
    script_ = static_cast<stand_in*>(dlsym(handle_, "stand_in"));
    *script_ = stand_in{};
  }
  ~StandInLibrary() {
    EXPECT_EQ(script_->closes, script_->inits) << path_;
    EXPECT_EQ(script_->frees, script_->stores) << path_;
    EXPECT_EQ(script_->unattached, 0U) << path_;
    EXPECT_EQ(script_->too_early, 0U) << path_;
    EXPECT_EQ(script_->concurrent_inits, 0U) << path_;
    script_->answers = nullptr;
    script_->answer_count = 0;
    dlclose(handle_);
  }
  StandInLibrary(const StandInLibrary&) = delete;
  StandInLibrary& operator=(const StandInLibrary&) = delete;

  const std::string& path() const noexcept { return path_; }
  stand_in* operator->() noexcept { return script_; }

  /// Answers a statement from now on. Texts and cells are the caller's and live as long as this object.
  void answer(const stand_in_answer& answer) {
    answers_.push_back(answer);
    script_->answers = answers_.data();
    script_->answer_count = answers_.size();
  }
  /// With an error.
  void refuse(const char* statement, unsigned error, const char* text, int uses = 0) {
    stand_in_answer refusal{};
    refusal.statement = statement;
    refusal.error = error;
    refusal.text = text;
    refusal.uses = uses;
    answer(refusal);
  }
  /// With rows.
  void give(const char* statement, unsigned fields, std::vector<const char*> cells, int uses = 0) {
    rows_.push_back(std::move(cells));
    stand_in_answer rows{};
    rows.statement = statement;
    rows.fields = fields;
    rows.rows = static_cast<unsigned>(rows_.back().size()) / fields;
    rows.cells = rows_.back().data();
    rows.uses = uses;
    answer(rows);
  }
  void variable(const char* statement, const char* name, const char* value) { give(statement, 2, {name, value}); }
  void forgetAnswers() {
    answers_.clear();
    script_->answer_count = 0;
  }

  /// The calls since the last time, a line each.
  std::string calls() {
    std::string text(script_->calls, script_->used);
    script_->used = 0;
    return text;
  }

 private:
  std::string path_;
  void* handle_;
  stand_in* script_ = nullptr;
  std::vector<stand_in_answer> answers_;
  std::vector<std::vector<const char*>> rows_;
};

}  // namespace orrery::test
