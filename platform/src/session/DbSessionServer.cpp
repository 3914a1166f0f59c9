#include "orrery/platform/DbSessionServer.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <exception>

#include "orrery/platform/services.h"

#include "serving.h"

using orrery::platform::services;
using orrery::platform::session::Serving;

namespace DBAgentUtils {
namespace {

constexpr std::int64_t ordinaryIdleSeconds = 120;
constexpr std::int64_t mostIdleSeconds = 86400;

CKyError idleSecondsOfSettings(std::int64_t& seconds) {
  std::optional<std::string> text;
  if (const auto status = services().settings->read("Session", "nIdleSeconds", text); !status.ok())
    return {status.code, status.text};
  seconds = ordinaryIdleSeconds;
  if (!text.has_value() || text->empty()) return {};
  const char* const end = text->data() + text->size();
  const auto [stopped, error] = std::from_chars(text->data(), end, seconds);
  if (error != std::errc() || stopped != end || seconds < 1 || seconds > mostIdleSeconds)
    return {EINVAL, "nIdleSeconds of section Session is no number from 1 to " + std::to_string(mostIdleSeconds)};
  return {};
}

}  // namespace

DzDbAgentSessionHandler::~DzDbAgentSessionHandler() = default;

bool DzDbAgentSessionHandler::ShouldSaveRegisteredPorts() {
  return false;
}

DbSessionServer::DbSessionServer(std::shared_ptr<DzDbAgentSessionHandler> handler)
    : handler_(std::move(handler)),
      maxIdleTimeoutCount_(handler_->GetIdleTimeoutMaxCount()),
      stop_(orrery::platform::aboveStandardStreams(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))) {}

DbSessionServer::~DbSessionServer() {
  CleanupSessionServer();
}

CKyError DbSessionServer::StartSessionServer(const std::string& serviceName, IdleCallback idle, int) try {
  {
    const std::lock_guard held(mutex_);
    if (!stop_) return {EMFILE, "there was no descriptor left for the session server"};
    if (cleaned_) return {ECANCELED, "the session server was cleaned up"};
    if (!served_.empty())
      return served_ == serviceName ? CKyError() : CKyError(EBUSY, "the session server serves " + served_);
    served_ = serviceName;
    servingThread_ = std::this_thread::get_id();
  }
  const auto leave = [](DbSessionServer* server) {
    const std::lock_guard held(server->mutex_);
    server->served_.clear();
    server->enter(State::ended);
  };
  const std::unique_ptr<DbSessionServer, decltype(leave)> leaving(this, leave);

  Serving::Plan plan;
  plan.serviceName = serviceName;
  plan.admitted = admitted_;
  plan.idle = idle;
  plan.stop = stop_.get();
  plan.patience = std::chrono::milliseconds(patience_);
  plan.idleInterval = std::chrono::milliseconds(idleInterval_);
  if (idleInterval_ <= 0) {
    std::int64_t seconds = 0;
    if (CKyError error = idleSecondsOfSettings(seconds); error.isError()) return error;
    plan.idleInterval = std::chrono::seconds(seconds);
  }
  if (const auto status = services().directories->temporary(plan.folder); !status.ok())
    return {status.code, status.text};
  idleTimeoutCount = 0;
  Serving serving(*this, std::move(plan));
  if (CKyError error = serving.open(); error.isError()) return error;
  {
    const std::lock_guard held(mutex_);
    enter(State::listening);
  }
  return serving.run();
} catch (const std::exception& failure) {
  return {ENOMEM, failure.what()};
}

/// Under the mutex.
void DbSessionServer::enter(State state) {
  state_ = state;
  changed_.notify_all();
}

bool DbSessionServer::waitUntilListening(std::int64_t milliseconds) {
  std::unique_lock held(mutex_);
  const auto isDecided = [&] { return state_ != State::prepared || cleaned_ || !stop_; };
  changed_.wait_for(held, std::chrono::milliseconds(milliseconds), isDecided);
  return state_ == State::listening && !cleaned_;
}

void DbSessionServer::CleanupSessionServer() {
  std::unique_lock held(mutex_);
  cleaned_ = true;
  changed_.notify_all();
  if (stop_) ::eventfd_write(stop_.get(), 1);
  if (servingThread_ != std::this_thread::get_id()) changed_.wait(held, [&] { return served_.empty(); });
}

void DbSessionServer::prepare() {
  const std::lock_guard held(mutex_);
  eventfd_t ignored = 0;
  if (cleaned_ && stop_) ::eventfd_read(stop_.get(), &ignored);
  cleaned_ = false;
  if (state_ == State::ended) state_ = State::prepared;
}

void DbSessionServer::admit(uid_t account) {
  admitted_.push_back(account);
}

}  // namespace DBAgentUtils
