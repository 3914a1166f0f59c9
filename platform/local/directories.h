#pragma once

#include <memory>
#include <string>

#include "orrery/platform/services.h"

namespace orrery::platform::local {

/// Where things lie in a home.
struct HomePaths {
  explicit HomePaths(std::string home) : root(std::move(home)) {}
  std::string temporary() const { return root + "/tmp"; }
  std::string results() const { return root + "/results"; }
  std::string log() const { return root + "/log"; }
  std::string media() const { return root + "/media"; }
  std::string store() const { return root + "/store.db"; }

  const std::string root;
};

class HomeDirectories final : public Directories {
 public:
  HomeDirectories(HomePaths paths, std::shared_ptr<Inventory> inventory)
      : paths_(std::move(paths)), inventory_(std::move(inventory)) {}

  Status temporary(std::string& path) override;
  Status home(std::string& path) override;
  Status baseHome(std::string& path) override;
  Status jobResults(const std::string& clientName, std::string& path) override;

 private:
  const HomePaths paths_;
  const std::shared_ptr<Inventory> inventory_;
};

}  // namespace orrery::platform::local
