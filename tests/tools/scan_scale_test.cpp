// tavrik-scan on many files: in threads, from lists, within limits, ended early; and what it writes beside its lines.
#include <csignal>
#include <cstdio>
#include <map>
#include <regex>
#include <set>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "tests/support/scan_command.h"

namespace tavrik::tests {
namespace {

using Json = nlohmann::json;
using Names = std::vector<std::string>;

/** The "file" of each object. */
Names Files(const std::string &json_lines) {
    Names files;
    for (const std::string &line : Lines(json_lines))
        files.push_back(Json::parse(line)["file"]);
    return files;
}

TEST_F(ScanCommand, PrintsTheSameWhateverTheNumberOfThreads) {
    // More files than are under way at a time, with work of all sizes and errors among them.
    for (int number = 0; number < 700; ++number) {
        const fs::path path = fmt::format("many/{}/{:03}", number % 7, number);
        if (number % 50 == 0)
            WriteSample(number % 100 == 0 ? "entry07" : "entry2", path);
        else
            Write(path, std::string(static_cast<std::size_t>(number) * 100, number % 3 == 0 ? 'M' : '\0'));
    }
    std::string list;
    for (const char *path : {"many/3", "missing", "many", "many/0/000"})
        list += std::string(path) + '\n';
    Write("list", list);
    for (const char *form : {"--json --sha256", ""}) {
        const std::string arguments = fmt::format("{} -r --files-from list -j ", form);
        const Outcome one = Scan(arguments + "1");
        EXPECT_EQ(one.code, 2);
        EXPECT_EQ(Lines(one.err).size(), 1u) << one.err;
        if (*form != '\0') {
            EXPECT_EQ(Lines(one.out).size(), 100u + 1 + 700 + 1);
        }
        for (const char *threads : {"2", "4", "33"}) {
            const Outcome several = Scan(arguments + threads);
            EXPECT_EQ(several.code, one.code) << threads;
            EXPECT_EQ(several.out, one.out) << threads;
            EXPECT_EQ(several.err, one.err) << threads;
        }
    }
}

TEST_F(ScanCommand, TakesPathsFromListsWhateverTheyAreCalled) {
    const std::set<std::string> odd = {"top/a b",   "top/line\nfeed", "top/-r",       "top/[a,b]",
                                       "top/\"'$(", "top/*",          "top/\xC3\xA4", "top/return\r"};
    for (const std::string &name : odd)
        WriteSample("entry07", name);
    for (const char *command :
         {"find top -type f -print0 | LC_ALL=C sort -z | {} -q --json --files-from - -0",
          "find top -type f -print0 | LC_ALL=C sort -z > list; {} -q --json -0 --files-from list",
          "find top -type f -print0 | LC_ALL=C sort -z | xargs -0 -n 3 {} -q --json --", "{} -q --json -r top"}) {
        const Outcome scan = Shell(fmt::format("( {} )", fmt::format(fmt::runtime(command), Program())));
        EXPECT_EQ(scan.err, "") << command;
        EXPECT_EQ(Files(scan.out), Names(odd.begin(), odd.end())) << command;
    }
    // Empty lines do not count, and the last one need not end.
    Write("list", "\n\ntop/a b\n\ntop/return\r\ntop/*");
    EXPECT_EQ(Files(Scan("--json --files-from list").out), (Names{"top/a b", "top/return\r", "top/*"}));

    WriteSample("entry07", "found.exe");
    const Outcome missing = Scan("--files-from missing found.exe");
    EXPECT_EQ(missing.code, 2);
    EXPECT_EQ(Lines(missing.out).size(), 1u) << "what could be scanned is";
    EXPECT_NE(missing.err.find("missing cannot be read: No such file"), std::string::npos) << missing.err;
    Write("binary", std::string(1 << 20, 'x'));
    EXPECT_NE(Scan("--files-from binary").err.find("longer than"), std::string::npos);
}

TEST_F(ScanCommand, CarvesPayloadsIntoNewFiles) {
    const std::string kOdd = "b/\n:\xFFsetup.exe";
    for (const std::string &path : {std::string("a/setup.exe"), kOdd, std::string("c/setup.exe")}) {
        WriteSample("entry07", path);
        std::ofstream(path, std::ios::binary | std::ios::app) << "overlay of " << path;
    }
    const std::vector<std::string> lines = Lines(Scan("-r --json --carve new/folder a b c").out);
    ASSERT_EQ(lines.size(), 3u);
    std::map<std::string, std::string> carved; // by the scanned file
    for (const auto &[path, line] : {std::pair(std::string("a/setup.exe"), lines[0]), std::pair(kOdd, lines[1]),
                                     std::pair(std::string("c/setup.exe"), lines[2])}) {
        const Json finding = Json::parse(line)["findings"][0];
        carved[path] = finding["carved"];
        const std::string bytes = ReadFile(carved[path]);
        EXPECT_TRUE(bytes.starts_with("\xEF\xBE\xAD\xDENullsoftInst")) << line;
        EXPECT_EQ(bytes, ReadFile(path).substr(finding["offset"])) << line;
    }
    const std::string offset = fmt::format("0x{:x}", Json::parse(lines[0])["findings"][0]["offset"].get<unsigned>());
    EXPECT_EQ(carved["a/setup.exe"], "new/folder/setup.exe." + offset + ".bin");
    EXPECT_EQ(carved["c/setup.exe"], "new/folder/setup.exe." + offset + ".2.bin");
    EXPECT_EQ(carved[kOdd], "new/folder/_x0a__xffsetup.exe." + offset + ".bin");

    const std::string before = ReadFile(carved["c/setup.exe"]);
    const Outcome again = Scan("--carve new/folder a/setup.exe");
    EXPECT_NE(again.out.find("to new/folder/setup.exe." + offset + ".3.bin\n"), std::string::npos) << again.out;
    EXPECT_EQ(ReadFile(carved["c/setup.exe"]), before);

    const Outcome no_folder = Scan("--carve a/setup.exe c/setup.exe");
    EXPECT_EQ(no_folder.code, 2);
    EXPECT_NE(no_folder.err.find("a/setup.exe"), std::string::npos) << no_folder.err;
    // A folder that takes no files, whoever the user is.
    const Outcome refused = Scan("--json --carve /proc/self c/setup.exe");
    EXPECT_EQ(refused.code, 2);
    const Json object = Json::parse(refused.out);
    EXPECT_EQ(object["findings"].size(), 1u);
    EXPECT_NE(object["error"].get<std::string>().find("not carved: /proc/self/setup.exe."), std::string::npos);
}

TEST_F(ScanCommand, KeepsToTheLimitsThatItIsGiven) {
    WriteSample("entry07", "top/found.exe");
    Write("top/small", "text");
    Write("top/large.bin", std::string(3000, '\0'));
    Write("top/cache/x.exe", "text");
    const std::pair<const char *, Names> rows[] = {
        {"--exclude '*.exe'", {"top/large.bin", "top/small"}},
        {"--exclude cache --exclude 'sm?l[k-m]'", {"top/found.exe", "top/large.bin"}},
        {"--exclude 'top/*/x.exe'", {"top/found.exe", "top/large.bin", "top/small"}},
        {"--exclude '[!a-f]*'", {}}, // the folder itself is one
        {"--exclude '[' --exclude ''", {"top/cache/x.exe", "top/found.exe", "top/large.bin", "top/small"}}};
    for (const auto &[arguments, files] : rows)
        EXPECT_EQ(Files(Scan(std::string("-r --json top ") + arguments).out), files) << arguments;
    EXPECT_EQ(Scan("--timeout 3600 top/found.exe").code, 1);
}

TEST_F(ScanCommand, SaysWhereItsTimeWent) {
    WriteSample("entry07", "found.exe");
    const Outcome profiled = Scan("--profile -j 2 found.exe");
    for (const char *step : {"open", "headers", "rules", "locators", "reading"})
        EXPECT_NE(profiled.err.find(std::string("  ") + step), std::string::npos) << profiled.err;
    const std::string sha256 = Shell("sha256sum found.exe").out.substr(0, 64);
    EXPECT_EQ(Json::parse(Scan("--json --sha256 found.exe").out)["sha256"], sha256);
}

TEST_F(ScanCommand, EndsQuietlyWhenNobodyReadsOn) {
    WriteSample("entry07", "found.exe");
    Write("list", [] {
        std::string list;
        for (int line = 0; line < 20'000; ++line)
            list += "found.exe\n";
        return list;
    }());
    for (const char *threads : {"1", "4"}) {
        const Outcome first =
            Shell(fmt::format("{{ {} -j {} --files-from list; echo $? >code; }} | head -n 1", Program(), threads));
        EXPECT_EQ(Lines(first.out).size(), 1u);
        EXPECT_EQ(first.err, "");
        EXPECT_EQ(ReadFile("code"), "141\n");
    }
}

TEST_F(ScanCommand, FailsOnceWhenOutputCannotBeWritten) {
    WriteSample("entry07", "found.exe");
    Write("list", "found.exe\nfound.exe\n");
    for (const char *arguments : {"locators", "explain 7 found.exe", "-q -j 1 --files-from list",
                                  "-q -j 4 --files-from list", "-q --json found.exe"}) {
        const Outcome full = Shell(fmt::format("( {} {} >/dev/full )", Program(), arguments));
        EXPECT_EQ(full.code, 2) << arguments;
        EXPECT_EQ(full.err, "tavrik-scan: standard output cannot be written: No space left on device\n") << arguments;
    }
}

TEST_F(ScanCommand, ShowsHowFarItIs) {
    WriteSample("entry07", "found.exe");
    const std::string slow_list = "( echo found.exe; sleep 0.5 ) | " + Program();
    const Outcome shown = Shell("( " + slow_list + " --progress always --files-from - )");
    EXPECT_TRUE(std::regex_search(shown.err, std::regex("^(\r\x1b\\[K1 file, 1 found, [0-9]+ files/s  found\\.exe)+"
                                                        "\r\x1b\\[Ktavrik-scan: 1 file, [^\r]*\n$")))
        << shown.err;
    for (const char *quiet : {"-q", "--progress never -q", "--progress auto -q"})
        EXPECT_EQ(Shell(fmt::format("( {} {} --files-from - )", slow_list, quiet)).err, "") << quiet;
}

/** tavrik-scan at the end of a pipe that stays open. */
class RunningScan {
public:
    RunningScan() {
        int input[2];
        int output[2];
        if (pipe(input) != 0 || pipe(output) != 0)
            throw std::runtime_error("no pipes");
        process_ = fork();
        if (process_ == 0) {
            dup2(input[0], STDIN_FILENO);
            dup2(output[1], STDOUT_FILENO);
            std::signal(SIGINT, SIG_DFL);
            for (const int end : {input[0], input[1], output[0], output[1]})
                close(end);
            if (std::freopen(".err", "w", stderr) != nullptr)
                execl((base::ProgramFolder() / "tavrik-scan").c_str(), "tavrik-scan", "-j", "2", "--files-from", "-",
                      nullptr);
            _exit(127);
        }
        close(input[0]);
        close(output[1]);
        input_ = input[1];
        output_ = output[0];
    }
    ~RunningScan() {
        close(input_);
        close(output_);
    }

    /** Names a file and waits until its line has come. */
    std::string Ask(const std::string &file) {
        const std::string line = file + '\n';
        if (write(input_, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
            return "";
        std::string answer;
        for (char byte; !answer.ends_with('\n') && read(output_, &byte, 1) == 1;)
            answer += byte;
        return answer;
    }

    /** Sends a signal and waits for the end. Returns the exit code. */
    int End(int signal) {
        kill(process_, signal);
        int status = 0;
        waitpid(process_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t process_;
    int input_;
    int output_;
};

TEST_F(ScanCommand, EndsWithItsSummaryWhenItIsInterrupted) {
    const std::string found = WriteSample("entry07", "found.exe");
    for (const auto &[signal, code] : {std::pair(SIGINT, 130), std::pair(SIGTERM, 143)}) {
        RunningScan scan;
        EXPECT_EQ(scan.Ask("found.exe"), found);
        EXPECT_EQ(scan.End(signal), code);
        EXPECT_NE(ReadFile(".err").find("tavrik-scan: interrupted: 1 file, "), std::string::npos) << ReadFile(".err");
    }
}

} // namespace
} // namespace tavrik::tests
