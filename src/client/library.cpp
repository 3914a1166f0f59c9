#include "client/library.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <vector>

namespace orrery::mysql {
namespace {

/// The texts for a missing function. People search logs and tickets for them, so those that were once written in
/// another way than the rule has it stay as they are.
ClientLibrary::MissingSymbol textsFor(const std::string& name) {
  struct Exception {
    const char* name;
    const char* logged;
    const char* stored;
  };
  static constexpr std::array exceptions = {
      Exception{"mysql_options", "[%s] could not locate symbol mysql_options_fp\n",
                "could not locate symbol mysql_options_fp"},
      Exception{"mysql_real_query", nullptr, "cound not locate symbol mysql_real_query"},
      Exception{"mysql_select_db", "[%s] could not locate symbol mysql_select db", nullptr},
      Exception{"mysql_affected_rows", "[%s] could not locate symbol mysql_affected_row",
                "could not locate symbol mysql_affected_row"},
      Exception{"mysql_ping", "[%s] could not locate symbol mysql_ping_fp", "could not locate symbol mysql_ping_fp"},
  };
  ClientLibrary::MissingSymbol texts{"[%s] could not locate symbol " + name, "could not locate symbol " + name};
  for (const Exception& exception : exceptions) {
    if (name != exception.name) continue;
    if (exception.logged != nullptr) texts.logged = exception.logged;
    if (exception.stored != nullptr) texts.stored = exception.stored;
  }
  return texts;
}

/// The libraries that the calling thread uses. Their code stays in the process, so releasing them when the thread ends
/// is safe even when every connection and every handle is gone by then.
class ThreadAttachments {
 public:
  ThreadAttachments() = default;
  ThreadAttachments(const ThreadAttachments&) = delete;
  ThreadAttachments& operator=(const ThreadAttachments&) = delete;
  ~ThreadAttachments() {
    ended_ = true;
    for (const OptionalFunctions& library : attached_) {
      if (library.mysql_thread_end != nullptr) library.mysql_thread_end();
    }
  }
  void attach(const OptionalFunctions& library) {
    if (ended_ || library.mysql_thread_init == nullptr) return;
    for (const OptionalFunctions& known : attached_) {
      if (known.mysql_thread_init == library.mysql_thread_init) return;
    }
    attached_.push_back(library);
    library.mysql_thread_init();
  }

 private:
  // An object of static life may close its connection after this one is gone.
  static thread_local bool ended_;
  std::vector<OptionalFunctions> attached_;
};
thread_local bool ThreadAttachments::ended_ = false;

std::mutex& setUpMutex() {
  static auto* const mutex = new std::mutex;  // never destroyed: threads may outlive main
  return *mutex;
}

}  // namespace

std::string ClientLibrary::MissingSymbol::logLine(const std::string& tag) const {
  std::string line = logged;
  return line.replace(line.find("%s"), 2, tag);
}

std::unique_ptr<ClientLibrary> ClientLibrary::open(const std::string& path, std::string& error) {
  if (path.empty()) {
    error = "no client library is named";  // to the loader it would be the program itself
    return nullptr;
  }
  // RTLD_LOCAL: a host's own client library of another generation keeps its symbols apart from these. RTLD_NODELETE:
  // libraries leave per-thread state and hooks behind that run when a thread ends, after the last handle is closed.
  void* handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL | RTLD_NODELETE);
  if (handle != nullptr) return std::unique_ptr<ClientLibrary>(new ClientLibrary(handle));
  const char* text = dlerror();  // NOLINT(concurrency-mt-unsafe): glibc keeps one text per thread
  error = text == nullptr ? "" : text;
  return nullptr;
}

ClientLibrary::~ClientLibrary() {
  dlclose(handle_);
}

template <class Function>
bool ClientLibrary::find(const char* name, Function& function) const {
  function = reinterpret_cast<Function>(dlsym(handle_, name));
  return function != nullptr;
}

bool ClientLibrary::resolve(MissingSymbol& missing) {
  const char* name = "";
  const auto has = [&](const char* symbol, auto& function) { return find(name = symbol, function); };
  const bool complete =
      has("mysql_init", call.mysql_init) && has("mysql_close", call.mysql_close) &&
      has("mysql_error", call.mysql_error) && has("mysql_errno", call.mysql_errno) &&
      has("mysql_real_connect", call.mysql_real_connect) && has("mysql_ssl_set", call.mysql_ssl_set) &&
      has("mysql_options", call.mysql_options) && has("mysql_get_server_info", call.mysql_get_server_info) &&
      has("mysql_real_query", call.mysql_real_query) && has("mysql_store_result", call.mysql_store_result) &&
      has("mysql_fetch_row", call.mysql_fetch_row) && has("mysql_field_count", call.mysql_field_count) &&
      has("mysql_list_dbs", call.mysql_list_dbs) && has("mysql_select_db", call.mysql_select_db) &&
      has("mysql_num_fields", call.mysql_num_fields) && has("mysql_affected_rows", call.mysql_affected_rows) &&
      has("mysql_free_result", call.mysql_free_result) && has("mysql_num_rows", call.mysql_num_rows) &&
      has("mysql_ping", call.mysql_ping);
  if (!complete) {
    missing = textsFor(name);
    return false;
  }
  find("mysql_get_client_version", optional.mysql_get_client_version);
  find("mysql_get_client_info", optional.mysql_get_client_info);
  find("mysql_fetch_lengths", optional.mysql_fetch_lengths);
  find("mysql_get_ssl_cipher", optional.mysql_get_ssl_cipher);
  find("mysql_thread_init", optional.mysql_thread_init);
  find("mysql_thread_end", optional.mysql_thread_end);
  isMariaDbConnector_ = dlsym(handle_, "mariadb_get_infov") != nullptr;
  return true;
}

ClientFamily ClientLibrary::family(bool hasCa) const {
  LibraryIdentity identity;
  identity.isMariaDbConnector = isMariaDbConnector_;
  if (optional.mysql_get_client_version != nullptr) identity.version = optional.mysql_get_client_version();
  if (optional.mysql_get_client_info != nullptr) {
    if (const char* info = optional.mysql_get_client_info()) identity.info = info;
  }
  return familyOf(identity, hasCa);
}

void ClientLibrary::attachThread() const {
  static thread_local ThreadAttachments attachments;
  attachments.attach(optional);
}

ConnectionHandle* ClientLibrary::newConnection() const {
  const std::lock_guard lock(setUpMutex());
  ConnectionHandle* const connection = call.mysql_init(nullptr);
  attachThread();  // not before: libraries want their set-up to come first, and this thread is attached by it already
  return connection;
}

}  // namespace orrery::mysql
