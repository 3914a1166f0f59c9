#include "session.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "orrery/platform/home.h"

#include "image_name.h"

namespace orrery::libobk {
namespace {

using namespace platform;

std::string adviceOnAccount(const std::string& home) {
  struct stat status {};
  if (::stat((home + "/store.db").c_str(), &status) != 0 || status.st_uid == ::geteuid()) return {};
  return "; mysqlbackup must run as the account that owns the home (user id " + std::to_string(status.st_uid) + ")";
}

std::shared_ptr<const Services> openTheHome() {
  std::shared_ptr<const Services> services;
  const std::string home = homeToUse();
  const Status status = openHome(home, services);
  if (!status.ok()) throw MediaFailure("cannot use the home " + home + ": " + status.text + adviceOnAccount(home));
  return services;
}

void requireBlockSize(std::size_t blockSize) {
  if (blockSize == 0 || blockSize > largestBlock)
    throw MediaFailure("blocks of " + std::to_string(blockSize) + " bytes are refused; choose 1 to " +
                       std::to_string(largestBlock));
}

std::string limited(std::string text, std::size_t limit) {
  if (text.size() >= limit) text.resize(limit - 1);
  return text;
}

}  // namespace

Session::Session() : environment_(readEnvironment()), services_(openTheHome()) {
  std::string home;
  require(services_->directories->home(home), "find the home");
  require(services_->directories->temporary(temporaryDirectory_), "find the folder for temporary files");
  media_.emplace(home + "/media");
  media_->removeLeftovers([this](int fd) { return settle(fd); });
}

bool Session::settle(int fd) noexcept {
  std::string name;
  try {
    name = nameIn(fd);
    if (!media_->isNamed(fileNameOf(name), fd)) return true;
  } catch (const std::exception&) {
    return true;  // what has no whole header was never an image
  }
  try {
    const ImageContents image = readContents(fd, name);
    struct stat status {};
    if (::fstat(fd, &status) != 0) throw systemFailure("look at the image " + printable(name), errno);
    enterLeftImage(*services_, image.header, {image.trailer.bytes, status.st_mtime});
    return true;
  } catch (const std::exception& error) {
    logLine(*services_->log, LogKind::error, environment_.job.jobId,
            std::string("an image was left behind without a record: ") + error.what());
    return false;
  }
}

void Session::requireNothingOpen() const {
  if (writing_ || reading_) throw MediaFailure("another image is still open in this session; close it first");
}

std::shared_ptr<AgentLink> Session::link() {
  if (!link_) link_ = AgentLink::of(temporaryDirectory_, environment_.job.jobId, services_->log);
  return link_;
}

// ------------------------------------------------------------------------------------------------------------ writing

void Session::backup(const std::string& name, std::size_t blockSize) {
  requireNothingOpen();
  requireBlockSize(blockSize);
  const std::string fileName = fileNameOf(name);
  if (media_->holds(fileName))
    throw MediaFailure(sbtExists, "the image " + printable(name) + " exists already; remove it or choose another name");
  const Place place = findPlace(*services_, environment_);
  ImageHeader header;
  header.name = name;
  header.blockSize = blockSize;
  header.jobId = environment_.job.jobId;
  header.instanceId = place.instance;
  header.subclientId = place.subclient;
  header.level = environment_.job.level;
  header.created = services_->clock->now() / 1000000;
  writing_.emplace(*media_, fileName, std::move(header), place, link());
}

void Session::write(const void* block) {
  if (!writing_) throw MediaFailure("no image is open for writing; call sbtbackup first");
  writing_->image.write(block);
  writing_->meter.add(writing_->header.blockSize);
}

void Session::finish(Writing& writing) {
  const std::int64_t finished = services_->clock->now() / 1000000;
  writing.image.finish();
  // An image that nobody can find by its record would never be restored.
  try {
    enterImage(*services_->archive, writing.place, writing.header, {writing.image.bytes(), finished});
  } catch (const std::exception& error) {
    writing.image.withdraw();
    throw MediaFailure(std::string(error.what()) + "; the image is given up: run the backup again");
  }
  writing.meter.finish();
}

void Session::close(bool giveUp) {
  if (!writing_ && !reading_) throw MediaFailure("no image is open");
  if (reading_) {
    if (reading_->image.atEnd()) reading_->meter.finish();
    reading_.reset();
    return;
  }
  if (!giveUp) {
    try {
      finish(*writing_);
    } catch (const std::exception&) {
      writing_.reset();
      throw;
    }
  }
  writing_.reset();
}

// ------------------------------------------------------------------------------------------------------------ reading

Session::Reading::Reading(OwnFd file, const std::string& name, std::size_t size, std::shared_ptr<AgentLink> link)
    : blockSize(size), image(std::move(file), name, size), meter(std::move(link), name, Phase::reading) {}

void Session::restore(const std::string& name, std::size_t blockSize) {
  requireNothingOpen();
  requireBlockSize(blockSize);
  OwnFd file = media_->open(fileNameOf(name));
  if (!file) throw MediaFailure(sbtNotFound, "there is no image " + printable(name) + " in " + media_->path());
  reading_.emplace(std::move(file), name, blockSize, link());
}

void Session::read(void* block) {
  if (!reading_) throw MediaFailure("no image is open for reading; call sbtrestore first");
  if (!reading_->image.read(block)) throw MediaFailure(sbtEndOfFile, "the image ends here");
  reading_->meter.add(reading_->blockSize);
}

// ----------------------------------------------------------------------------------------------------- whole images

void Session::remove(const std::vector<std::string>& names) {
  for (const std::string& name : names) removeOne(name);
}

/// The record first: a killed removal leaves an image without a record, which can be removed again, and never a record
/// whose image a restore would look for in vain.
void Session::removeOne(const std::string& name) {
  const std::string fileName = fileNameOf(name);
  // Of an image that is not there: what is entered after this look belongs to one that comes.
  std::vector<ArchiveFile> records = findRecords(*services_->archive, name);
  const OwnFd claimed = media_->claim(fileName);
  if (!claimed) {
    if (records.empty())
      throw MediaFailure(sbtNotFound, "there is no image " + printable(name) + " in " + media_->path());
    return takeOut(*services_->archive, records);
  }
  records = findRecords(*services_->archive, name);
  takeOut(*services_->archive, records);
  try {
    media_->remove(fileName);
  } catch (const std::exception&) {
    if (media_->isNamed(fileName, claimed.get())) putBack(*services_->archive, records);
    throw;
  }
}

SbtEntry* Session::describe(const std::vector<std::string>& names) {
  information_.clear();
  texts_.clear();
  numbers_.clear();
  for (const std::string& name : names) describeOne(name);
  information_.push_back({listEnd, nullptr});
  return information_.data();
}

void Session::describeOne(const std::string& name) {
  const std::string fileName = fileNameOf(name);
  tell(infoName, name);
  try {
    if (const OwnFd file = media_->open(fileName))
      describeContents(readContents(file.get(), name));
    else
      tell(infoNotFound, 1);
  } catch (const MediaFailure&) {
    tell(infoComment, "cannot be restored; sbtrestore says why");  // the others are told all the same
  }
}

void Session::describeContents(const ImageContents& image) {
  tell(infoMethod, methodStream);
  tell(infoCreated, static_cast<Ulong>(image.header.created));
  tell(infoLabel, "orrery-mysql media folder");
  tell(infoSharing, sharingMultiple);
  tell(infoOrder, orderRandom);
  constexpr std::size_t largestComment = 80;
  tell(infoComment,
       limited(std::string(image.header.level == 2 ? "incremental" : "full") + ", job " +
                   std::to_string(image.header.jobId) + ", " + std::to_string(image.trailer.bytes) + " bytes",
               largestComment));
}

void Session::tell(Ulong type, const std::string& text) {
  information_.push_back({type, texts_.emplace_back(text).data()});
}

void Session::tell(Ulong type, Ulong number) {
  information_.push_back({type, &numbers_.emplace_back(number)});
}

}  // namespace orrery::libobk
