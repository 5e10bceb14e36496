// "metrics": what there is to measure, for Prometheus and its kin, on standard output, into a file,
// or as the answer to one request over HTTP.
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <optional>

#include "platform/linux/process/directories.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/metrics/page.h"
#include "tools/trackctl/metrics/scrape.h"

namespace ot::trackctl {
namespace {

void write_file(const std::string& path, const std::string& text) {
  umask(0022);
  std::string error;
  if (replace_own_file(path, text, 0644, false, error) != 0) {
    throw failure(exit_refused, error);
  }
}

int answer() {
  std::signal(SIGPIPE, SIG_IGN);
  answer_scrape(STDIN_FILENO, STDOUT_FILENO,
                [](text_form form) { return read_metrics(form).text; });
  return exit_done;
}

}  // namespace

int run_metrics(const arguments& args) {
  command_line app{
      "Print what can be measured of the service, its tracks and trackpolicy, as OpenMetrics text. "
      "Without the service the text says that it is not running, and the exit status is 3.",
      "trackctl metrics"};
  app.footer(
      "Example: trackctl metrics --prometheus --output "
      "/var/lib/prometheus/node-exporter/tracks.prom");
  bool older = false;
  bool http = false;
  std::optional<std::string> path;
  app.add_flag("--prometheus", older,
               "the older text form of Prometheus, for readers of files such as node_exporter");
  app.add_option("--output", path, "write it to this file, which is replaced as a whole");
  app.add_flag("--http", http,
               "answer one HTTP request on standard input and output, for a socket unit");
  parse_arguments(app, args);
  if (http && (older || path)) {
    throw failure(exit_usage, "--http stands alone: who asks says which form it takes");
  }
  if (http) {
    return answer();
  }
  const metrics_page page = read_metrics(older ? text_form::prometheus : text_form::openmetrics);
  if (!path) {
    std::cout << page.text;
  } else {
    write_file(*path, page.text);
  }
  if (!page.service) {
    check_output();
    throw failure(exit_no_service,
                  "the service is not running, and the metrics say so; start it: "
                  "`systemctl start object_tracking`");
  }
  return exit_done;
}

}  // namespace ot::trackctl
