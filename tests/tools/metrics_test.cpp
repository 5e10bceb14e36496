// What is measured, as text for Prometheus and its kin, and the answer to one request for it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tools/json.h"
#include "tools/trackctl/kinds/bfd_metrics.h"
#include "tools/trackctl/metrics/page.h"
#include "tools/trackctl/metrics/scrape.h"

namespace ot::trackctl {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr metric heat{"room_heat_celsius", metric_kind::gauge, "How warm it is.", "celsius"};
constexpr metric doors{"room_doors", metric_kind::counter, "Doors that were opened."};

TEST(metrics_text, has_each_metric_in_one_piece_with_what_it_is) {
  metrics_text text(text_form::openmetrics);
  text.add(heat, {{"room", "a"}}, 20.5);
  text.add(doors, {}, 3);
  text.add(heat, {{"room", "b"}, {"side", "north"}}, -1);
  EXPECT_EQ(text.text(),
            "# HELP room_heat_celsius How warm it is.\n"
            "# TYPE room_heat_celsius gauge\n"
            "# UNIT room_heat_celsius celsius\n"
            "room_heat_celsius{room=\"a\"} 20.5\n"
            "room_heat_celsius{room=\"b\",side=\"north\"} -1\n"
            "# HELP room_doors Doors that were opened.\n"
            "# TYPE room_doors counter\n"
            "room_doors_total 3\n"
            "# EOF\n");
}

TEST(metrics_text, in_the_older_form_describes_counters_by_their_whole_name) {
  metrics_text text(text_form::prometheus);
  text.add(heat, {}, 20.5);
  text.add(doors, {}, 3);
  EXPECT_EQ(text.text(),
            "# HELP room_heat_celsius How warm it is.\n"
            "# TYPE room_heat_celsius gauge\n"
            "room_heat_celsius 20.5\n"
            "# HELP room_doors_total Doors that were opened.\n"
            "# TYPE room_doors_total counter\n"
            "room_doors_total 3\n");
}

TEST(metrics_text, without_a_measurement_is_nothing_but_its_end) {
  EXPECT_EQ(metrics_text(text_form::openmetrics).text(), "# EOF\n");
  EXPECT_EQ(metrics_text(text_form::prometheus).text(), "");
}

std::string labelled(std::string_view value) {
  metrics_text text(text_form::prometheus);
  text.add(doors, {{"l", value}}, 1);
  const std::string all = text.text();
  const std::size_t begin = all.find('"') + 1;
  return all.substr(begin, all.rfind('"') - begin);
}

TEST(metrics_text, escapes_what_a_label_may_not_hold) {
  EXPECT_EQ(labelled("a\\b\"c\nd\te"), "a\\\\b\\\"c\\nd\te");
  EXPECT_EQ(labelled(""), "");
}

TEST(metrics_text, has_no_byte_that_is_not_utf_8) {
  EXPECT_EQ(labelled("Z\xc3\xbcrich \xe2\x82\xac \xf0\x9f\x98\x80"),
            "Z\xc3\xbcrich \xe2\x82\xac \xf0\x9f\x98\x80");
  EXPECT_EQ(labelled("a\xff"),
            "a\xef\xbf\xbd"
            "ff");
  EXPECT_EQ(labelled("\xc3"),
            "\xef\xbf\xbd"
            "c3");
  EXPECT_EQ(labelled("\xc0\xaf"),
            "\xef\xbf\xbd"
            "c0\xef\xbf\xbd"
            "af");
  EXPECT_EQ(labelled("\xe0\x80\xaf"),
            "\xef\xbf\xbd"
            "e0\xef\xbf\xbd"
            "80\xef\xbf\xbd"
            "af");
  EXPECT_EQ(labelled("\xed\xa0\x80"),
            "\xef\xbf\xbd"
            "ed\xef\xbf\xbd"
            "a0\xef\xbf\xbd"
            "80");
  EXPECT_EQ(labelled("\xf4\x90\x80\x80").substr(0, 5),
            "\xef\xbf\xbd"
            "f4");
  EXPECT_EQ(labelled("\xf5\x80\x80\x80").substr(0, 5),
            "\xef\xbf\xbd"
            "f5");
  EXPECT_EQ(labelled("\xc3\n"),
            "\xef\xbf\xbd"
            "c3\\n");
  EXPECT_NE(labelled("\xff"), labelled("\xfe"));
}

std::string number(double value) {
  metrics_text text(text_form::prometheus);
  text.add(doors, {}, value);
  const std::string all = text.text();
  return all.substr(all.rfind(' ') + 1);
}

TEST(metrics_text, writes_numbers_so_that_nothing_is_lost) {
  EXPECT_EQ(number(0), "0\n");
  EXPECT_EQ(number(5'000'000'000), "5000000000\n");
  EXPECT_EQ(number(1'700'000'000.125), "1700000000.125\n");
  EXPECT_EQ(number(0.000123), "0.000123\n");
  EXPECT_EQ(std::stod(number(1e300)), 1e300);
}

// --- What is measured ----------------------------------------------------------------------------

std::string measured(const char* name, const track_info__& record, bool published = true) {
  metrics_text text(text_form::openmetrics);
  measure_track(name, record, published, 1'700'000'010.5, text);
  return text.text();
}

track_info__ record_of(track_type type) {
  track_info__ record;
  record.TrackeName.assign("cut");
  record.Type = type;
  record.StateChangeCounter = 3;
  record.SecondsLastChange = 1'700'000'000;
  return record;
}

TEST(metrics_page, has_a_track_with_its_state_changes_and_age) {
  track_info__ record = record_of(track_type::interface);
  record.TrackState = true;
  const std::string text = measured("uplink", record);
  EXPECT_THAT(text,
              HasSubstr("\nobject_tracking_track_state{track=\"uplink\",type=\"interface\",state="
                        "\"up\"} 1\n"
                        "object_tracking_track_state{track=\"uplink\",type=\"interface\",state="
                        "\"down\"} 0\n"
                        "object_tracking_track_state{track=\"uplink\",type=\"interface\",state="
                        "\"unknown\"} 0\n"));
  EXPECT_THAT(text, HasSubstr("\nobject_tracking_track_changes_total{track=\"uplink\"} 3\n"));
  EXPECT_THAT(text,
              HasSubstr("\nobject_tracking_track_since_change_seconds{track=\"uplink\"} 10.5\n"));
  EXPECT_THAT(text, Not(HasSubstr("delay")));
}

TEST(metrics_page, has_the_delay_that_runs_and_no_age_before_the_first_state) {
  track_info__ record = record_of(track_type::route);
  delayed_state_status__ delay{.TimeRemaining = 12, .TrackState = true};
  record.Delayed = &delay;
  const std::string text = measured("uplink", record, false);
  EXPECT_THAT(text, HasSubstr("state=\"unknown\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("\nobject_tracking_track_delay_remaining_seconds{track=\"uplink\","
                              "state=\"up\"} 12\n"));
  EXPECT_THAT(text, Not(HasSubstr("since_change")));
  delay.TrackState = false;
  EXPECT_THAT(measured("uplink", record), HasSubstr("{track=\"uplink\",state=\"down\"} 12\n"));
}

TEST(metrics_page, has_no_age_below_zero_when_the_clock_was_set_back) {
  track_info__ record = record_of(track_type::interface);
  record.SecondsLastChange = 1'700'009'999;
  EXPECT_THAT(measured("t", record), HasSubstr("since_change_seconds{track=\"t\"} 0\n"));
}

TEST(metrics_page, has_a_probes_return_code_and_its_round_trip_when_it_succeeded) {
  track_info__ record = record_of(track_type::probe);
  record.TrackTypeInfo.discriminant = static_cast<std::uint32_t>(track_type::probe);
  record.TrackTypeInfo.QmonTracks = {7, 25, 1};
  record.TrackState = true;
  const std::string good = measured("p", record);
  EXPECT_THAT(good, HasSubstr("\nobject_tracking_probe_return_code{track=\"p\",operation=\"7\"} "
                              "1\n"));
  EXPECT_THAT(good, HasSubstr("\nobject_tracking_probe_round_trip_seconds{track=\"p\",operation="
                              "\"7\"} 0.025\n"));
  record.TrackState = false;
  record.TrackTypeInfo.QmonTracks = {7, 25, 2};
  const std::string bad = measured("p", record);
  EXPECT_THAT(bad, HasSubstr("return_code{track=\"p\",operation=\"7\"} 2\n"));
  EXPECT_THAT(bad, HasSubstr("state=\"down\"} 1\n"));
  EXPECT_THAT(bad, Not(HasSubstr("round_trip")));
  record.TrackTypeInfo.QmonTracks = {7, 0, 0};
  EXPECT_THAT(measured("p", record), HasSubstr("state=\"unknown\"} 1\n"));
}

TEST(metrics_page, has_a_bfd_session) {
  bfd_session_info__ session;
  session.State = 3;
  session.DetectionTime = 150'000;
  session.Ups = 2;
  session.Downs = 1;
  session.PacketsIn = 5'000'000'000;
  session.PacketsOut = 8;
  metrics_text into(text_form::openmetrics);
  measure_bfd_session("peer", session, into);
  const std::string text = into.text();
  for (const char* const line :
       {"session_state{track=\"peer\",state=\"up\"} 1", "state=\"init\"} 0", "state=\"down\"} 0",
        "state=\"admin-down\"} 0", "session_detection_time_seconds{track=\"peer\"} 0.15",
        "session_ups_total{track=\"peer\"} 2", "session_downs_total{track=\"peer\"} 1",
        "session_received_packets_total{track=\"peer\"} 5000000000",
        "session_sent_packets_total{track=\"peer\"} 8"}) {
    EXPECT_THAT(text, HasSubstr(line + std::string("\n")));
  }
  session.DetectionTime = 0;
  metrics_text unknown(text_form::openmetrics);
  measure_bfd_session("peer", session, unknown);
  EXPECT_THAT(unknown.text(), Not(HasSubstr("detection_time")));
}

TEST(metrics_page, has_what_the_service_needs_and_its_loop) {
  metrics_text into(text_form::openmetrics);
  measure_engine({"bfd", true, 0, 2, "", 12}, into);
  measure_engine({"fib", false, 0, 0, "", 5}, into);
  measure_loop({1'700'000'000, 1, 2345, 6}, into);
  const std::string text = into.text();
  for (const char* const line :
       {"engine_connected{service=\"bfd\"} 1", "engine_pending{service=\"bfd\"} 2",
        "engine_connected{service=\"fib\"} 0", "engine_discarded_packets_total{service=\"bfd\"} 12",
        "service_start_time_seconds 1700000000", "loop_longest_turn_seconds 0.002345",
        "log_dropped_lines_total 6"}) {
    EXPECT_THAT(text, HasSubstr("\nobject_tracking_" + std::string(line) + "\n"));
  }
  EXPECT_THAT(text, Not(HasSubstr("discarded_packets_total{service=\"fib\"}")));
}

TEST(metrics_page, has_policies) {
  metrics_text into(text_form::openmetrics);
  measure_policy({{"policy", "p"},
                  {"kind", "command"},
                  {"track", "t"},
                  {"runs", 4},
                  {"failures", 1},
                  {"dropped", 2},
                  {"problem", "exit status 3"},
                  {"penalty", 1500},
                  {"suppressed_ms", 200}},
                 into);
  const std::string text = into.text();
  const std::string labels = "{policy=\"p\",kind=\"command\",track=\"t\"} ";
  EXPECT_THAT(text, HasSubstr("\nobject_tracking_policy_runs_total" + labels + "4\n"));
  EXPECT_THAT(text, HasSubstr("\nobject_tracking_policy_failures_total" + labels + "1\n"));
  EXPECT_THAT(text, HasSubstr("\nobject_tracking_policy_dropped_states_total" + labels + "2\n"));
  EXPECT_THAT(text, HasSubstr("\nobject_tracking_policy_problem{policy=\"p\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("\nobject_tracking_policy_penalty{policy=\"p\"} 1500\n"));
  EXPECT_THAT(text, HasSubstr("\nobject_tracking_policy_suppressed{policy=\"p\"} 1\n"));
}

// --- Over HTTP -----------------------------------------------------------------------------------

std::string page(text_form form) {
  return form == text_form::openmetrics ? "new\n# EOF\n" : "old\n";
}

TEST(metrics_http, answers_with_the_form_that_is_accepted) {
  const std::string open = http_answer("GET /metrics HTTP/1.1\r\nHost: a\r\n\r\n", page);
  EXPECT_EQ(open,
            "HTTP/1.1 200 OK\r\n"
            "Content-Type: application/openmetrics-text; version=1.0.0; charset=utf-8\r\n"
            "Content-Length: 10\r\nConnection: close\r\n\r\nnew\n# EOF\n");
  const std::string line = "GET /metrics HTTP/1.0\r\nACCEPT: ";
  EXPECT_THAT(http_answer(line + "text/plain;version=0.0.4;q=1,*/*;q=0.1\r\n\r\n", page),
              EndsWith("text/plain; version=0.0.4; charset=utf-8\r\nContent-Length: 4\r\n"
                       "Connection: close\r\n\r\nold\n"));
  EXPECT_THAT(
      http_answer(line + "application/openmetrics-text;version=1.0.0,text/plain;q=0.5\r\n\r\n",
                  page),
      EndsWith("# EOF\n"));
  EXPECT_THAT(http_answer("GET /metrics HTTP/1.1\r\nX: text/plain\r\nAccept: */*\r\n\r\n", page),
              EndsWith("# EOF\n"));
}

TEST(metrics_http, answers_head_without_a_body) {
  EXPECT_THAT(http_answer("HEAD /metrics?a=b HTTP/1.1\r\n\r\n", page),
              testing::AllOf(StartsWith("HTTP/1.1 200 OK"), HasSubstr("Content-Length: 10\r\n"),
                             EndsWith("\r\n\r\n")));
}

TEST(metrics_http, refuses_what_it_does_not_have) {
  const auto status = [](const char* head) { return http_answer(head, page).substr(9, 3); };
  EXPECT_EQ(status("GET / HTTP/1.1\r\n\r\n"), "404");
  EXPECT_EQ(status("GET /metrics/x HTTP/1.1\r\n\r\n"), "404");
  EXPECT_EQ(status("POST /metrics HTTP/1.1\r\n\r\n"), "405");
  for (const char* const none :
       {"\r\n\r\n", "GET\r\n\r\n", "GET /metrics\r\n\r\n", " /metrics HTTP/1.1\r\n\r\n",
        "GET /metrics HTTP/2\r\n\r\n", "\x16\x03\x01\x02 a b\n\n"}) {
    EXPECT_EQ(status(none), "400") << none;
  }
}

TEST(metrics_http, says_that_it_cannot_measure_now) {
  const std::string text =
      http_answer("GET /metrics HTTP/1.1\r\n\r\n",
                  [](text_form) -> std::string { throw std::runtime_error("/secret/path"); });
  EXPECT_THAT(text, StartsWith("HTTP/1.1 503 "));
  EXPECT_THAT(text, Not(HasSubstr("secret")));
}

// Both ends of a connection; what the other end gets.
class scrape : public testing::Test {
 protected:
  scrape() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends_.data()), 0); }
  ~scrape() override {
    close(ends_[0]);
    close(ends_[1]);
  }
  void say(std::string_view text) {
    ASSERT_EQ(write(ends_[0], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  std::string answered(const metrics_source& source) {
    std::string got;
    std::thread client([&] {
      std::array<char, 4096> part{};
      ssize_t size = 0;
      while ((size = read(ends_[0], part.data(), part.size())) > 0) {
        got.append(part.data(), static_cast<std::size_t>(size));
      }
      EXPECT_EQ(size, 0) << "the connection was reset";
      shutdown(ends_[0], SHUT_WR);
    });
    answer_scrape(ends_[1], ends_[1], source);
    close(std::exchange(ends_[1], -1));
    client.join();
    return got;
  }
  std::array<int, 2> ends_{};
};

TEST_F(scrape, a_large_answer_arrives_whole_although_the_request_has_more_behind_it) {
  say("GET /metrics HTTP/1.1\r\n\r\n" + std::string(5000, 'x'));
  const std::string large(3'000'000, 'x');
  EXPECT_THAT(answered([&](text_form) { return std::string(large); }),
              EndsWith("\r\n\r\n" + large));
}

TEST_F(scrape, a_request_in_pieces_is_answered) {
  std::thread slow([this] {
    for (const char* const part : {"GET /met", "rics HTTP/1.0\r\nHost: a\r\n", "\r\n"}) {
      say(part);
      std::this_thread::yield();
    }
  });
  EXPECT_THAT(answered(page), EndsWith("# EOF\n"));
  slow.join();
}

TEST_F(scrape, a_request_that_is_too_large_is_refused) {
  say("GET /metrics HTTP/1.1\r\nX: " + std::string(9000, 'x'));
  EXPECT_THAT(answered(page), StartsWith("HTTP/1.1 431 "));
}

TEST_F(scrape, who_says_nothing_gets_nothing_and_who_leaves_holds_nothing_up) {
  shutdown(ends_[0], SHUT_WR);
  EXPECT_EQ(answered(page), "");
}

TEST_F(scrape, a_request_without_an_end_is_refused) {
  say("GET /metrics HTTP/1.1\r\n");
  shutdown(ends_[0], SHUT_WR);
  EXPECT_THAT(answered(page), StartsWith("HTTP/1.1 408 "));
}

}  // namespace
}  // namespace ot::trackctl
