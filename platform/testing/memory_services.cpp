/// The small ports: log, settings, directories, vault, proxies, clock.

#include <exception>
#include <string_view>

#include "memory.h"

namespace orrery::platform::testing {
namespace {

constexpr std::string_view sealMark = "sealed:";

class MemoryLog final : public LogSink {
 public:
  explicit MemoryLog(SharedMemory memory) : memory_(std::move(memory)) {}

  bool wants(int level) const noexcept override { return memory_->log.wants(level); }

  void write(const LogLine& line) noexcept override {
    try {
      if (memory_->failures.check("LogSink::write", {std::string(line.text)}).ok()) memory_->log.add(line);
    } catch (const std::exception&) {
      return;  // a line that memory is too short for is lost, as the port has it
    }
  }

  void writeInChild(const LogLine& line) noexcept override { memory_->log.addFromChild(line); }

 private:
  const SharedMemory memory_;
};

/// Refuses what no settings file can hold, so that a test meets the refusal too.
Status checkSetting(const std::string& section, const std::string& key, const std::string& value) {
  constexpr std::string_view unusable{"\n\r\0", 3};
  const auto holds = [](const std::string& text, std::string_view characters) {
    return text.find_first_of(characters) != std::string::npos;
  };
  const auto hasBlankEnd = [](const std::string& text) {
    constexpr std::string_view blanks = " \t";
    return !text.empty() &&
           (blanks.find(text.front()) != std::string_view::npos || blanks.find(text.back()) != std::string_view::npos);
  };
  if (section.empty() || holds(section, unusable) || holds(section, "]"))
    return Status::invalid("a section cannot have this name");
  if (key.empty() || holds(key, unusable) || holds(key, "=:") || holds(key.substr(0, 1), "[;#") || hasBlankEnd(key))
    return Status::invalid("a key cannot have this name");
  if (holds(value, unusable) || hasBlankEnd(value)) return Status::invalid("a setting cannot have this value");
  return Status::success();
}

class MemorySettings final : public Settings {
 public:
  explicit MemorySettings(SharedMemory memory) : memory_(std::move(memory)) {}

  Status read(const std::string& section, const std::string& key, std::optional<std::string>& value) override {
    return attempt(*memory_, "Settings::read", {key, section}, [&] {
      value.reset();
      if (const auto known = memory_->settings.find(section); known != memory_->settings.end())
        if (const auto present = known->second.find(key); present != known->second.end()) value = present->second;
      return Status::success();
    });
  }

  Status write(const std::string& section, const std::string& key, const std::string& value) override {
    return attempt(*memory_, "Settings::write", {key, section}, [&] {
      if (Status status = checkSetting(section, key, value); !status.ok()) return status;
      memory_->settings[section][key] = value;
      return Status::success();
    });
  }

  Status list(const std::string& section, std::map<std::string, std::string>& values) override {
    return attempt(*memory_, "Settings::list", {section}, [&] {
      const auto known = memory_->settings.find(section);
      values.clear();
      if (known != memory_->settings.end()) values = known->second;
      return Status::success();
    });
  }

 private:
  const SharedMemory memory_;
};

class MemoryDirectories final : public Directories {
 public:
  explicit MemoryDirectories(SharedMemory memory) : memory_(std::move(memory)) {}

  Status temporary(std::string& path) override {
    return attempt(*memory_, "Directories::temporary", {}, [&] { return give(memory_->temporary, path); });
  }
  Status home(std::string& path) override {
    return attempt(*memory_, "Directories::home", {}, [&] { return give(memory_->home, path); });
  }
  Status baseHome(std::string& path) override {
    return attempt(*memory_, "Directories::baseHome", {}, [&] { return give(memory_->home, path); });
  }
  Status jobResults(const std::string& clientName, std::string& path) override {
    return attempt(*memory_, "Directories::jobResults", {clientName}, [&] {
      bool known = clientName.empty();
      for (const auto& [id, client] : memory_->clients) known = known || client.name == clientName;
      return known ? give(memory_->jobResults, path) : Status::notFound("there is no client " + clientName);
    });
  }

 private:
  static Status give(const std::optional<std::string>& known, std::string& path) {
    path = known.value_or("");
    return Status::success();
  }

  const SharedMemory memory_;
};

class MemoryVault final : public PasswordVault {
 public:
  explicit MemoryVault(SharedMemory memory) : memory_(std::move(memory)) {}

  Status seal(const std::string& plain, std::string& sealed) override {
    return attempt(*memory_, "PasswordVault::seal", {}, [&] {
      sealed = std::string(sealMark) + plain;
      return Status::success();
    });
  }

  Status open(const std::string& sealed, std::string& plain) override {
    return attempt(*memory_, "PasswordVault::open", {sealed}, [&] {
      if (!sealed.empty() && sealed.compare(0, sealMark.size(), sealMark) != 0)
        return Status::failure("the stored password was not sealed by this vault");
      plain = sealed.empty() ? std::string() : sealed.substr(sealMark.size());
      return Status::success();
    });
  }

 private:
  const SharedMemory memory_;
};

class MemoryProxies final : public ProxyDirectory {
 public:
  explicit MemoryProxies(SharedMemory memory) : memory_(std::move(memory)) {}

  Status installDirectory(const ProxyRequest& request, std::optional<std::string>& directory) override {
    const std::vector<std::string> arguments{request.version, std::to_string(request.clientId)};
    return attempt(*memory_, "ProxyDirectory::installDirectory", arguments, [&] {
      directory.reset();
      const auto& known = memory_->settings["Proxy"];
      const std::string any = std::to_string(request.clientId) + "/" + std::to_string(request.applicationType);
      for (const std::string& key : {any + "/" + request.version, any}) {
        const auto present = known.find(key);
        if (present == known.end() || present->second.empty()) continue;
        directory = present->second;
        break;
      }
      return Status::success();
    });
  }

 private:
  const SharedMemory memory_;
};

class MemoryClock final : public Clock {
 public:
  explicit MemoryClock(SharedMemory memory) : memory_(std::move(memory)) {}

  std::int64_t now() noexcept override {
    static_cast<void>(memory_->failures.check("Clock::now"));
    return memory_->now;
  }

  void sleep(std::int64_t milliseconds) noexcept override {
    static_cast<void>(memory_->failures.check("Clock::sleep", {std::to_string(milliseconds)}));
    const std::lock_guard lock(memory_->mutex);
    memory_->sleeps.push_back(milliseconds);
    if (milliseconds > 0) memory_->now += milliseconds * 1000;
  }

 private:
  const SharedMemory memory_;
};

}  // namespace

std::shared_ptr<LogSink> makeLog(SharedMemory memory) {
  return std::make_shared<MemoryLog>(std::move(memory));
}

std::shared_ptr<Settings> makeSettings(SharedMemory memory) {
  return std::make_shared<MemorySettings>(std::move(memory));
}

std::shared_ptr<Directories> makeDirectories(SharedMemory memory) {
  return std::make_shared<MemoryDirectories>(std::move(memory));
}

std::shared_ptr<PasswordVault> makeVault(SharedMemory memory) {
  return std::make_shared<MemoryVault>(std::move(memory));
}

std::shared_ptr<ProxyDirectory> makeProxies(SharedMemory memory) {
  return std::make_shared<MemoryProxies>(std::move(memory));
}

std::shared_ptr<Clock> makeClock(SharedMemory memory) {
  return std::make_shared<MemoryClock>(std::move(memory));
}

}  // namespace orrery::platform::testing
