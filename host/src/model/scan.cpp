#include "model/scan.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "model/file_name.h"
#include "model/folder_listing.h"
#include "model/message.h"
#include "model/object_name.h"

namespace Velmor::Host {

namespace {

namespace fs = std::filesystem;

/// Where a file lies: an object's own folder is named like it.
enum class Place { Flat, OwnFolder };

struct Found {
  std::string object;  ///< as the file name has it
  Place place = Place::Flat;
  CacheFile file;
};

/// The last component of a path, of the working folder's for "." and the like.
std::string folderName(std::string const& path) {
  std::error_code error;
  auto absolute = fs::absolute(path, error).lexically_normal();
  if (!absolute.has_filename()) absolute = absolute.parent_path();
  return absolute.filename().string();
}

/// Whether an object of a file is meant by the name that a caller asks for.
/// Names written by `canonicalFileName` are met as well.
bool isAsked(std::string const& asked, std::string const& object, std::string const& shown) {
  return asked == shown || asked == object || fileStem(asked) == object;
}

bool mayHold(std::string const& folder, std::string const& asked) {
  return asked.empty() || folder == asked || queryName(folder) == asked ||
         fileStem(asked) == folder || !queryCarries(folder);
}

class Scan {
 public:
  explicit Scan(ScanRequest const& request) : request_(request), asked_(request.object) {}

  ScanResult run() {
    resolve();
    nameObjects();
    sortFiles();
    return std::move(result_);
  }

 private:
  void resolve() {
    auto path = request_.path;
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    if (path.empty()) return fail("there is no path to read from");
    bool const saysFolder = path.size() < request_.path.size();

    std::error_code error;
    auto const type = fs::status(path, error).type();
    if (type == fs::file_type::directory) return scanFolderOrParent(path, saysFolder);
    if (type == fs::file_type::regular) return takeFile(path);
    if (type != fs::file_type::not_found)
      return fail(about(path, error ? error.message() : "it is neither a folder nor a file"));

    auto const [parent, last] = splitPath(path);
    auto const parentType = fs::status(parent, error).type();
    bool const named = asked_.empty() || asked_ == last;
    if (named && parentType == fs::file_type::regular) {
      asked_ = last;
      return takeFile(parent);
    }
    if (named && !saysFolder && parentType == fs::file_type::directory) {
      asked_ = last;
      return scanFolder(parent);
    }
    fail(about(path, "there is no such folder or file"));
  }

  static std::pair<std::string, std::string> splitPath(std::string const& path) {
    auto const slash = path.rfind('/');
    if (slash == path.npos) return {".", path};
    auto parent = path.substr(0, slash);
    while (parent.size() > 1 && parent.back() == '/') parent.pop_back();
    return {parent.empty() ? "/" : parent, path.substr(slash + 1)};
  }

  void scanFolderOrParent(std::string const& path, bool saysFolder) {
    scanFolder(path);
    // A cache can hold both a folder `<object>` of something else and the
    // object's files beside it; a listing of the whole cache shows those.
    auto const [parent, last] = splitPath(path);
    if (saysFolder || asked_.empty() || last != asked_ || !result_.failure.empty()) return;
    auto const any = [&](Found const& f) { return isAsked(asked_, f.object, queryName(f.object)); };
    if (std::none_of(found_.begin(), found_.end(), any) && !request_.recursive)
      scanFolder(parent, false);
  }

  void scanFolder(std::string const& path, bool needed = true) {
    if (request_.recursive) return scanAllBelow(path);
    auto const own = folderName(path);
    auto const listing = list(path, needed);
    for (auto const& name : listing.files) {
      auto const parsed = parseFileName(name);
      add(path, name, own,
          parsed.object == own || parsed.object.empty() ? Place::OwnFolder : Place::Flat);
    }
    std::set<std::string> here;
    for (auto const& f : found_)
      if (f.place == Place::OwnFolder) here.insert(f.object);
    for (auto const& folder : listing.folders) {
      if (here.count(folder) > 0 || !mayHold(folder, asked_)) continue;
      auto const below = join(path, folder);
      for (auto const& name : list(below, false).files) {
        auto const object = parseFileName(name).object;
        if (object == folder || object.empty()) add(below, name, folder, Place::OwnFolder);
      }
    }
    std::set<std::string> placed;
    for (auto const& f : found_)
      if (f.place == Place::OwnFolder) placed.insert(f.object);
    std::erase_if(found_, [&](Found const& f) {
      return f.place == Place::Flat && placed.count(f.object) > 0;
    });
  }

  void scanAllBelow(std::string const& top) {
    std::set<std::string> visited;  // links may lead back up
    std::vector<std::string> open{top};
    while (!open.empty()) {
      auto const path = std::move(open.back());
      open.pop_back();
      std::error_code error;
      auto const real = fs::canonical(path, error);
      if (!error && !visited.insert(real.string()).second) continue;
      auto const listing = list(path, path == top);
      auto const own = folderName(path);
      for (auto const& name : listing.files) add(path, name, own, Place::Flat);
      for (auto it = listing.folders.rbegin(); it != listing.folders.rend(); ++it)
        open.push_back(join(path, *it));
    }
  }

  void takeFile(std::string const& path) {
    auto const [parent, name] = splitPath(path);
    if (!isCacheFileName(name)) return fail(about(path, "it is no .vdb file"));
    add(parent, name, folderName(parent), Place::Flat);
  }

  FolderListing list(std::string const& path, bool needed) {
    auto listing = listFolder(path);
    if (!listing.failure.empty()) {
      auto const text = about(path, "cannot read the folder: " + listing.failure);
      if (needed) {
        fail(text);
      } else {
        result_.warnings.push_back(text);
      }
    }
    for (auto& warning : listing.warnings) result_.warnings.push_back(std::move(warning));
    return listing;
  }

  static std::string join(std::string const& folder, std::string const& name) {
    return (fs::path(folder) / name).string();
  }

  void add(std::string const& folder, std::string const& name, std::string const& own,
           Place place) {
    if (name.find(request_.pattern) == name.npos) return;
    auto const parsed = parseFileName(name);
    // Nothing but a number, `0012.vdb`: the folder tells whose frame it is.
    auto object = parsed.object.empty() ? own : parsed.object;
    if (object.empty()) object.assign(1, '_');
    found_.push_back({object, place, {object, parsed.numbered, parsed.frame, join(folder, name)}});
  }

  /// Gives each object the name under which it is shown, and keeps those asked for.
  void nameObjects() {
    std::map<std::string, std::string> shown;
    std::set<std::string> taken;
    for (auto const& f : found_)
      if (queryCarries(f.object)) taken.insert(shown[f.object] = f.object);
    // Objects that need a replacement come second, so that no file of another
    // program can take the name of one that needs none.
    std::set<std::string> refused;
    for (auto const& f : found_)
      if (shown.count(f.object) == 0) refused.insert(f.object);
    for (auto const& object : refused) {
      auto name = queryName(object);
      while (!taken.insert(name).second) name += '_';
      shown[object] = std::move(name);
    }
    for (auto& f : found_) {
      f.file.object = shown[f.object];
      if (asked_.empty() || isAsked(asked_, f.object, f.file.object))
        result_.files.push_back(std::move(f.file));
      else
        refused.erase(f.object);
    }
    for (auto const& object : refused)
      result_.warnings.push_back(
          about(object, "shown as '" + shown[object] + "': a query cannot hold the object's name"));
  }

  void sortFiles() {
    auto const key = [](CacheFile const& f) {
      return std::tie(f.object, f.numbered, f.frame, f.path);
    };
    std::sort(result_.files.begin(), result_.files.end(),
              [&](CacheFile const& a, CacheFile const& b) { return key(a) < key(b); });
  }

  void fail(std::string text) {
    if (result_.failure.empty()) result_.failure = std::move(text);
  }

  ScanRequest const& request_;
  std::string asked_;
  std::vector<Found> found_;
  ScanResult result_;
};

}  // namespace

ScanResult scanCache(ScanRequest const& request) { return Scan(request).run(); }

}  // namespace Velmor::Host
