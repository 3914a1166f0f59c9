#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent_link.h"
#include "environment.h"
#include "image_reader.h"
#include "image_writer.h"
#include "registration.h"

namespace orrery::libobk {

using namespace media;

/// One session of a backup program: a home, and at most one open image. Everything throws MediaFailure. One thread uses
/// one session at a time.
class Session {
 public:
  /// Opens the home, removes what killed writers left in its media folder and enters the images that they could not.
  Session();

  void backup(const std::string& name, std::size_t blockSize);
  void restore(const std::string& name, std::size_t blockSize);
  void write(const void* block);
  /// Fails with sbtEndOfFile at the end.
  void read(void* block);
  /// Closes the open image. One that is being created is completed and entered in the archive, or, with `giveUp` or on
  /// failure, leaves nothing.
  void close(bool giveUp);
  /// Whether an image that is being created is still open.
  bool isCreating() const noexcept { return writing_.has_value(); }
  /// Removes images one by one; the first failure ends that.
  void remove(const std::vector<std::string>& names);
  /// What is known of these images; one that is damaged does not hide the others. The list lives until the next call.
  SbtEntry* describe(const std::vector<std::string>& names);

 private:
  struct Writing {
    Writing(const MediaFolder& media, std::string file, ImageHeader theHeader, const Place& thePlace,
            std::shared_ptr<AgentLink> link)
        : fileName(std::move(file)),
          header(std::move(theHeader)),
          place(thePlace),
          image(media, fileName, header),
          meter(std::move(link), header.name, Phase::writing) {}
    std::string fileName;
    ImageHeader header;
    Place place;
    ImageWriter image;
    ProgressMeter meter;
  };
  struct Reading {
    Reading(OwnFd file, const std::string& name, std::size_t size, std::shared_ptr<AgentLink> link);
    std::size_t blockSize;
    ImageReader image;
    ProgressMeter meter;
  };

  void requireNothingOpen() const;
  std::shared_ptr<AgentLink> link();
  /// Enters the image of an open file that its writer left behind; false when that is still to be done.
  bool settle(int fd) noexcept;
  void finish(Writing& writing);
  void removeOne(const std::string& name);
  void describeOne(const std::string& name);
  void describeContents(const ImageContents& image);
  void tell(Ulong type, const std::string& text);
  void tell(Ulong type, Ulong number);

  const Environment environment_;
  std::shared_ptr<const platform::Services> services_;
  std::string temporaryDirectory_;
  std::optional<MediaFolder> media_;
  std::shared_ptr<AgentLink> link_;
  std::optional<Writing> writing_;
  std::optional<Reading> reading_;
  std::vector<SbtEntry> information_;
  std::deque<std::string> texts_;  ///< and numbers: what the information points to
  std::deque<Ulong> numbers_;
};

}  // namespace orrery::libobk
