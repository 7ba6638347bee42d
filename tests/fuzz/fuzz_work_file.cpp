// Fuzzer of one file of a work directory (ZEPH_FUZZED, set by the build): the
// first byte of the input chooses one of the prepared directories of the tests,
// the rest takes the place of the file. A run of a few rounds goes over it. Every
// end by the exit path of the program is right; a fault of the sanitizers is not.
//
// With ZEPH_FUZZ_SEEDS the unchanged files go into that folder, as first inputs.
#include "control/chain_loop.h"
#include "control/model_chains.h"
#include "control/run_driver.h"
#include "fuzz/framed_mutation.h"
#include "listing/stops.h"
#include "support/places.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr std::string_view fuzzed = ZEPH_FUZZED;

struct base_directory {
  std::string path;     // ends in '/'
  std::string file;     // the one that inputs replace
  std::string original; // its bytes, "" when the directory has none
};

std::string bytes_of(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void write(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// What a user does who has waited for long: the file STOP after some seconds.
class patience {
public:
  explicit patience(const std::string& directory)
      : user_([this, directory] {
          std::unique_lock<std::mutex> lock(mutex_);
          if (!done_.wait_for(lock, std::chrono::seconds(5), [this] { return over_; }))
            write(directory + "STOP", "");
        }) {}
  ~patience() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      over_ = true;
    }
    done_.notify_one();
    user_.join();
  }
  patience(const patience&) = delete;
  patience& operator=(const patience&) = delete;

private:
  bool over_ = false;
  std::mutex mutex_;
  std::condition_variable done_;
  std::thread user_;
};

// The few rounds of a started run, and its reports.
void go_on(zeph::run& r) {
  r.asked.nburn = std::clamp(r.asked.nburn, 0, 1);
  r.asked.nround = std::clamp(r.asked.nround, 0, 3);
  r.asked.isamp = std::clamp(r.asked.isamp, 1, 2);
  if (!has_several_models(r.asked.analysis_type)) {
    zeph::run_chain(r);
    zeph::report_run(r);
  } else if (!moves_between_models(r.asked.analysis_type)) {
    // a file may ask for thousands of models: only runs that save their state look for STOP then
    if (!r.saved.wanted) {
      r.saved.wanted = true;
      r.asked.sampler.state_minutes = 0; // at the end only
      r.saved.to = std::make_unique<zeph::state_writer>();
    }
    zeph::run_models(r);
  } else {
    zeph::run_jump_chain(r);
  }
}

void run_in(const std::string& path) {
  {
    const patience user(path);
    std::ostringstream listing;
    zeph::run r(listing, path);
    try {
      zeph::start_run(r);
      go_on(r);
    } catch (const zeph::run_stop&) {
    } catch (const std::bad_alloc&) {}
  }
  for (const char* name : {"mixz_prob", "mixz_last", "statelast", "STOP"}) fs::remove(path + name);
}

// The name that ZEPH_FUZZED has in a directory; "" when it plays no part there.
std::string name_in(const std::string& path) {
  for (const auto& entry : fs::directory_iterator(path)) {
    const std::string name = entry.path().filename();
    if (fuzzed == "relationship" && name.find("INV") != std::string::npos) return name;
    if (fuzzed == "pedigree" && name.starts_with("PEDFILE")) return name;
  }
  if (fuzzed == "ytopredict" || fs::exists(path + std::string(fuzzed))) return std::string(fuzzed);
  return "";
}

std::vector<base_directory> copied_directories() {
  const fs::path from = zeph_test::source_folder() + "/tests/data/workdirs";
  const char* memory = fs::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
  const fs::path into = fs::path(memory) / ("zeph-fuzz-" + std::to_string(getpid()));
  std::vector<fs::path> all;
  for (const auto& entry : fs::directory_iterator(from))
    if (entry.is_directory()) all.push_back(entry.path());
  std::sort(all.begin(), all.end());
  std::vector<base_directory> out;
  for (const fs::path& source : all) {
    const fs::path target = into / source.filename();
    fs::create_directories(into);
    fs::copy(source, target, fs::copy_options::recursive);
    base_directory d{target.string() + "/", "", ""};
    if (fuzzed == "oldsol" || fuzzed == "r_parm") { // its own first run leaves them
      run_in(d.path);
      if (fs::exists(d.path + "lastsol")) fs::copy(d.path + "lastsol", d.path + "oldsol");
      if (fs::exists(d.path + "gparlast")) fs::copy(d.path + "gparlast", d.path + "r_parm");
    }
    d.file = name_in(d.path);
    if (d.file.empty()) continue;
    d.original = bytes_of(d.path + d.file);
    out.push_back(d);
  }
  return out;
}

std::vector<base_directory>& directories() {
  static std::vector<base_directory> all = copied_directories(); // a fuzzer has one life
  return all;
}

void remove_directories() {
  if (!directories().empty()) fs::remove_all(fs::path(directories()[0].path).parent_path().parent_path());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const std::vector<base_directory>& all = directories();
  std::atexit(remove_directories);
  if (all.empty() || all.size() > 255) std::abort();
  const char* seeds = std::getenv("ZEPH_FUZZ_SEEDS");
  if (seeds == nullptr) return 0;
  for (std::size_t i = 0; i < all.size(); ++i)
    write(std::string(seeds) + "/" + fs::path(all[i].path).parent_path().filename().string(),
          std::string(1, static_cast<char>(i)) +
              (all[i].original.empty() ? "0 1 2\n 1 2 3 4\n" : all[i].original));
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const base_directory& d = directories()[data[0] % directories().size()];
  write(d.path + d.file, {reinterpret_cast<const char*>(data) + 1, size - 1});
  run_in(d.path);
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t largest,
                                               unsigned seed) {
  if (size > 1 && seed % 8 != 0) {
    const std::string changed =
        zeph_fuzz::changed_frames({reinterpret_cast<const char*>(data) + 1, size - 1}, seed);
    if (!changed.empty() && changed.size() + 1 <= largest) {
      std::copy(changed.begin(), changed.end(), data + 1);
      return changed.size() + 1;
    }
  }
  return LLVMFuzzerMutate(data, size, largest);
}
