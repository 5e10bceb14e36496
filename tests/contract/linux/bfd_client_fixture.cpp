// Binding a client for a test and writing down what it is notified of.
#include "tests/contract/linux/bfd_client_fixture.h"

#include <arpa/inet.h>

#include <cstdlib>
#include <filesystem>
#include <utility>

#include "platform/err_string.h"
#include "platform/status.h"

namespace ot::testing {
namespace {

reported_list* reported_by_client = nullptr;

std::string number_of(const bfd_address& address) {
  return std::to_string(address.bytes[3]);
}

void on_request(const bfdc_request_result* result) {
  const std::string number = number_of(result->destination);
  std::string text = result->event == bfdc_request_created ? "created " : "gone ";
  text += number;
  if (result->error != status_ok) {
    text = "refused " + number + ": " + err_string(result->error);
  }
  reported_by_client->push_back(text);
}

void on_state(const bfdc_event* event) {
  EXPECT_EQ(event->kind, bfdc_event_session_state);
  EXPECT_EQ(event->ifhandle, 100U + event->destination.bytes[3]);
  reported_by_client->push_back((event->session_state == 0 ? "up " : "down ") +
                                number_of(event->destination));
}

bfdc_session_request request_of(unsigned number) {
  bfdc_session_request request;
  request.kind = 1;
  request.ifhandle = 100 + number;
  request.interface.assign("v" + std::to_string(number));
  request.destination = {bfd_family_ipv4, {10, 0, 0, static_cast<std::uint8_t>(number)}};
  request.source.family = bfd_family_ipv4;
  return request;
}

}  // namespace

void bfd_client_fixture::SetUp() {
  contract_test::SetUp();
  setenv("OT_BFD_ENGINE", "frr", 1);
  directory_ = std::string(std::getenv("OT_ROOT")) + "/run/frr";
  std::filesystem::create_directories(directory_);
  engine_ = std::make_unique<fake_bfdd>(manager(), directory_ + "/bfdd.sock");
  reported_by_client = new reported_list;
  bfdc_bind_record record;
  record.manager = manager();
  record.bound = [](const bfdc_bind_result* result) {
    reported_by_client->push_back(result->result == status_ok ? "bound" : "not bound");
  };
  record.connection = [](const bfdc_connection_status* status) {
    reported_by_client->push_back("connection " + std::to_string(status->status));
  };
  record.request_done = on_request;
  record.state_changed = on_state;
  ASSERT_EQ(bfdc_bind_nb(record, nullptr), 0);
  ASSERT_EQ(wait_reported(2), (reported_list{"bound", "connection 1"}));
}

void bfd_client_fixture::TearDown() {
  bfdc_unbind();
  engine_.reset();
  delete std::exchange(reported_by_client, nullptr);
  unsetenv("OT_BFD_ENGINE");
  contract_test::TearDown();
}

void bfd_client_fixture::start() {
  engine_->listen();
  wait_engine(true);
}

void bfd_client_fixture::wait_engine(bool running) {
  ASSERT_TRUE(run_until([running] { return bfdc_engine().running == running; })) << running;
}

int bfd_client_fixture::create(unsigned number, std::uint32_t rate, std::uint32_t debounce) {
  bfdc_session_request request = request_of(number);
  request.rate = rate;
  request.debounce_count = debounce;
  bfdc_session_answer answer;
  const int status = bfdc_session_create_nb(request, &answer);
  return status != status_ok ? status : answer.result;
}

int bfd_client_fixture::remove(unsigned number) {
  bfdc_session_answer answer;
  const int status = bfdc_session_delete_unconfig_nb(request_of(number), &answer);
  return status != status_ok ? status : answer.result;
}

void bfd_client_fixture::make(unsigned number) {
  ASSERT_EQ(create(number), 0);
  ASSERT_EQ(wait_reported(1), reported_list{"created " + std::to_string(number)});
  ASSERT_TRUE(run_until([&] { return !label(number).empty(); }));
}

void bfd_client_fixture::bring_up(unsigned number) {
  make(number);
  engine_->set_state(label(number), "up");
  ASSERT_EQ(wait_reported(1), reported_list{"up " + std::to_string(number)});
}

reported_list bfd_client_fixture::reported() {
  return std::exchange(*reported_by_client, {});
}

reported_list bfd_client_fixture::wait_reported(std::size_t count) {
  EXPECT_TRUE(run_until([&] { return reported_by_client->size() >= count; }))
      << reported_by_client->size() << " in place of " << count;
  return reported();
}

std::string bfd_client_fixture::address(unsigned number) {
  return "10.0.0." + std::to_string(number);
}

}  // namespace ot::testing
