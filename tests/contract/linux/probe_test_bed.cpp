// The Linux probe service under the contract suite: the table as qmond fills it, in a folder of the
// test's own.
#include "tests/contract/probe_test_bed.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <system_error>

#include "platform/linux/probes/qmon/table_layout.h"
#include "tools/qmond/table_writer.h"

namespace ot::contract {
namespace {

namespace fs = std::filesystem;

class linux_bed : public probe_test_bed {
 public:
  linux_bed() : folder_(fs::temp_directory_path() / "ot_contract.XXXXXX") {
    if (mkdtemp(folder_.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), folder_);
    }
    setenv("OT_ROOT", folder_.c_str(), 1);
    fs::create_directories(fs::path(folder_ + statistics_path).parent_path());
  }
  ~linux_bed() override {
    writer_.reset();
    unsetenv("OT_ROOT");
    fs::remove_all(folder_);
  }
  void start() override {
    end();
    writer_.emplace(folder_ + statistics_path, 8);
    writer_->install();
  }
  void end() override {
    writer_.reset();
    slots_.clear();
  }
  void result(std::uint32_t op_id, std::uint32_t code, std::uint32_t milliseconds) override {
    if (!slots_.contains(op_id)) {
      slots_[op_id] = writer_->add(op_id, {}).value();
    }
    statistics words{};
    words[word_return_code] = code;
    words[word_response_time] = milliseconds;
    writer_->publish(slots_[op_id], words);
  }
  void stop(std::uint32_t op_id) override {
    writer_->remove(slots_.at(op_id));
    slots_.erase(op_id);
  }

 private:
  std::string folder_;
  std::optional<qmond::table_writer> writer_;
  std::map<std::uint32_t, std::uint32_t> slots_;
};

}  // namespace

std::unique_ptr<probe_test_bed> make_probe_test_bed() {
  return std::make_unique<linux_bed>();
}

}  // namespace ot::contract
