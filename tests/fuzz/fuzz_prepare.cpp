// Fuzzer of zeph-prepare: the input is a model description, a CSV file and a
// pedigree, parted by lines of "====". Descriptions that pass make a work
// directory, and a run of one round goes over it.
#include "control/chain_loop.h"
#include "control/run_driver.h"
#include "listing/stops.h"
#include "prepare/description/model_description.h"
#include "prepare/messages/messages.h"
#include "prepare/model/model_assembly.h"
#include "prepare/output/summary.h"
#include "prepare/output/work_directory.h"
#include "support/places.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr std::string_view border = "====\n";
const char* const parts[] = {"model.toml", "data.csv", "pedigree.csv"};

const std::string& place() {
  static const std::string path = [] {
    const char* memory = fs::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
    return std::string(memory) + "/zeph-fuzz-" + std::to_string(getpid()) + "/";
  }();
  return path;
}

void write(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string bytes_of(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void write_seeds(const std::string& folder) {
  for (const auto& entry : fs::directory_iterator(zeph_test::source_folder() + "/examples")) {
    if (!fs::exists(entry.path() / "model.toml")) continue;
    std::string all;
    for (const char* part : parts) all += bytes_of(entry.path() / part) + std::string(border);
    write(folder + "/" + entry.path().filename().string(), all);
  }
}

void run_once(const std::string& path) {
  std::ostringstream listing;
  zeph::run r(listing, path);
  try {
    zeph::start_run(r);
    r.asked.nburn = 0;
    r.asked.nround = std::clamp(r.asked.nround, 0, 1);
    if (!has_several_models(r.asked.analysis_type)) zeph::run_chain(r);
  } catch (const zeph::run_stop&) {}
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fs::create_directories(place());
  std::atexit([] { fs::remove_all(place()); });
  if (const char* seeds = std::getenv("ZEPH_FUZZ_SEEDS")) write_seeds(seeds);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace zeph::prepare;
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  for (const char* part : parts) {
    const std::size_t end = std::min(rest.find(border), rest.size());
    write(place() + part, rest.substr(0, end));
    rest.remove_prefix(std::min(end + border.size(), rest.size()));
  }
  message_log log;
  const model_description d = read_description(place() + "model.toml", log);
  if (exit_code(log) != 0) return 0;
  const prepared_model p = assemble_model(d, {}, log);
  if (exit_code(log) != 0) return 0;
  summary_text(d, p);
  if (!write_work_directory(d, p, place() + "work/", "").ok) return 0;
  run_once(place() + "work/");
  fs::remove_all(place() + "work");
  return 0;
}
