// velmora-tool as a process: the rows of tests/data/tool-commands.txt (its head says how they
// are written), cli and pop3 among them against scripted servers on loopback, and a shared base.
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <sstream>

#include "access/scripted_server.h"
#include "tests/programs.h"

namespace {

using namespace programs;
namespace ts = testing_server;

TEST(Tool, Rows) {
  std::istringstream text(test_support::readFile(kDataDir + "/tool-commands.txt"));
  std::string args, input, want, out, notes;
  std::vector<ts::Step> script;
  std::vector<std::string> heard;
  int rows = 0;
  std::optional<Result> r;
  for (std::string line; std::getline(text, line);) {
    const std::string tag = line.substr(0, 2), rest = line.substr(std::min<size_t>(2, line.size()));
    const std::string said = rest.substr(rest.empty() ? 0 : 1);
    if (tag == "$ ") {
      args = rest, input = want = "", script.clear(), heard.clear();
    } else if (args.empty()) {
      continue;  // comments and blank lines between rows
    } else if (tag == "< ") {
      input += rest + "\n";
    } else if (tag == "C:") {
      script.push_back(ts::receive()), heard.push_back(said);
    } else if (tag == "S:" && !script.empty() && script.back().kind == ts::Step::Send) {
      script.back().text += said + "\r\n";
    } else if (tag == "S:") {
      script.push_back(ts::send(said + "\r\n"));
    } else if (tag == "! " || tag == "~ " || tag == "= ") {
      if (!r) {  // the lines of standard output first, then the checks on the run
        std::optional<ts::ScriptedServer> server;
        if (!script.empty()) server.emplace(script);
        auto argv = split(args, ' ');
        for (auto& word : argv) {
          if (word == "{port}")
            word = std::to_string(server ? server->port() : test_support::closedPort());
        }
        r = run(tool(argv), input, 60, kDataDir), ++rows, out = notes = "";
        EXPECT_EQ(server ? server->finish() : heard, heard) << args;
        std::istringstream lines(r->out);
        for (std::string l; std::getline(lines, l);) (l.rfind("* ", 0) ? out : notes) += l + "\n";
        EXPECT_EQ(out, want) << args;
      }
      if (tag != "= ") {
        const bool held = (notes + r->err).find(rest) != std::string::npos;
        EXPECT_EQ(held, tag == "! ") << args << ": " << rest;
      } else {
        EXPECT_EQ(r->exitCode, std::stoi(rest)) << args << "\n" << r->err;
        r.reset(), args = "";
      }
    } else {
      want += line + "\n";
    }
  }
  EXPECT_GE(rows, 39);
}

// Left out of the Windows run: there the tool makes a path without a drive letter absolute.
TEST(ServerDataTool, SharedBase) {
  test_support::TempDir cluster;
  std::filesystem::create_directories(cluster.path() + "/SharedDomains/cluster.test/tom.macnt");
  const auto r =
      run(tool({"domains", "--base", "base", "--shared", cluster.path()}), "", 60, kDataDir);
  EXPECT_NE(r.out.find("shared cluster.test " + cluster.path() + "/SharedDomains/cluster.test\n"),
            std::string::npos)
      << r.out;
}

}  // namespace
