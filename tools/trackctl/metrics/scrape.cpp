#include "tools/trackctl/metrics/scrape.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <iostream>
#include <optional>

namespace ot::trackctl {
namespace {

using std::chrono::steady_clock;

constexpr std::size_t head_max = 8192;
constexpr std::size_t drained_max = 65536;
constexpr std::chrono::seconds patience{5};
constexpr std::string_view plain_text = "text/plain; charset=utf-8";

// The words of the request line; nothing when it is none.
struct request_line {
  std::string_view method;
  std::string_view target;
};

std::optional<request_line> read_request_line(std::string_view head) {
  const std::string_view line = head.substr(0, head.find_first_of("\r\n"));
  const std::size_t first = line.find(' ');
  const std::size_t last = line.rfind(' ');
  if (first == std::string_view::npos || first == 0 || last == first ||
      !line.substr(last + 1).starts_with("HTTP/1.")) {
    return std::nullopt;
  }
  return request_line{line.substr(0, first), line.substr(first + 1, last - first - 1)};
}

// Who wants plain text and has not heard of OpenMetrics gets the older form.
text_form wanted_form(std::string_view head) {
  std::string lower(head);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const std::size_t begin = lower.find("\naccept:");
  if (begin == std::string::npos) {
    return text_form::openmetrics;
  }
  const std::string accepted = lower.substr(begin, lower.find('\n', begin + 1) - begin);
  const auto takes = [&accepted](const char* type) {
    return accepted.find(type) != std::string::npos;
  };
  return takes("text/plain") && !takes("application/openmetrics-text") ? text_form::prometheus
                                                                       : text_form::openmetrics;
}

std::string answer_text(std::string_view status, std::string_view type, std::string_view body,
                        bool with_body) {
  std::string text = "HTTP/1.1 ";
  text += status;
  text += "\r\nContent-Type: ";
  text += type;
  text += "\r\nContent-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n";
  text += status.starts_with("405") ? "Allow: GET, HEAD\r\n\r\n" : "\r\n";
  text += with_body ? body : "";
  return text;
}

// Waits until the descriptor can be read or written; false when the time is up.
bool ready(int fd, short events, steady_clock::time_point end) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now());
  pollfd one{.fd = fd, .events = events, .revents = 0};
  return left.count() > 0 && (poll(&one, 1, static_cast<int>(left.count())) > 0 || errno == EINTR);
}

bool is_whole(std::string_view head) {
  return head.find("\r\n\r\n") != std::string_view::npos ||
         head.find("\n\n") != std::string_view::npos;
}

// What was sent until the empty line, the end, or the bound of size or time.
std::string read_head(int input) {
  const auto end = steady_clock::now() + patience;
  std::string head;
  std::array<char, 2048> part{};
  while (!is_whole(head) && head.size() <= head_max && ready(input, POLLIN, end)) {
    const ssize_t size = read(input, part.data(), part.size());
    if (size > 0) {
      head.append(part.data(), static_cast<std::size_t>(size));
    } else if (size == 0 || (errno != EAGAIN && errno != EINTR)) {
      break;
    }
  }
  return head;
}

void write_text(int output, std::string_view text) {
  fcntl(output, F_SETFL, fcntl(output, F_GETFL) | O_NONBLOCK);
  const auto end = steady_clock::now() + patience;
  while (!text.empty() && ready(output, POLLOUT, end)) {
    const ssize_t size = write(output, text.data(), text.size());
    if (size > 0) {
      text.remove_prefix(static_cast<std::size_t>(size));
    } else if (errno != EAGAIN && errno != EINTR) {
      return;
    }
  }
}

// A socket that is closed with something unread would take the answer back.
void drain(int input, int output) {
  if (shutdown(output, SHUT_WR) != 0) {
    return;
  }
  const auto end = steady_clock::now() + patience;
  std::array<char, 2048> part{};
  std::size_t drained = 0;
  while (drained < drained_max && ready(input, POLLIN, end)) {
    const ssize_t size = read(input, part.data(), part.size());
    if (size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR)) {
      return;
    }
    drained += size > 0 ? static_cast<std::size_t>(size) : 0;
  }
}

std::string refusal(std::string_view status, std::string_view text) {
  return answer_text(status, plain_text, text, true);
}

}  // namespace

std::string http_answer(std::string_view head, const metrics_source& source) {
  const std::optional<request_line> request = read_request_line(head);
  if (!request) {
    return refusal("400 Bad Request", "this is no HTTP/1.x request\n");
  }
  if (request->method != "GET" && request->method != "HEAD") {
    return refusal("405 Method Not Allowed", "GET and HEAD are answered here\n");
  }
  if (request->target.substr(0, request->target.find('?')) != "/metrics") {
    return refusal("404 Not Found", "there is /metrics here\n");
  }
  const text_form form = wanted_form(head);
  try {
    return answer_text("200 OK",
                       form == text_form::openmetrics
                           ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                           : "text/plain; version=0.0.4; charset=utf-8",
                       source(form), request->method == "GET");
  } catch (const std::exception& error) {
    std::cerr << "trackctl: " << error.what() << '\n';
    return refusal("503 Service Unavailable", "it cannot be measured now; the log says why\n");
  }
}

void answer_scrape(int input, int output, const metrics_source& source) {
  const std::string head = read_head(input);
  if (head.empty()) {
    return;
  }
  if (is_whole(head)) {
    write_text(output, http_answer(head, source));
  } else if (head.size() > head_max) {
    write_text(output, refusal("431 Request Header Fields Too Large", "at most 8 kB\n"));
  } else {
    write_text(output, refusal("408 Request Timeout", "the request has no end\n"));
  }
  drain(input, output);
}

}  // namespace ot::trackctl
