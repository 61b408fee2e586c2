// Test helper: runs the built kvxmsg binary (KVXMSG_PATH) with arguments and a
// standard input, and captures its exit status, standard output and standard
// error exactly; plus scratch directories and file helpers for the tool tests.
// Each test owns its scratch directory; one test thread at a time.
#ifndef KVX_TESTS_TOOLS_TOOLRUNNER_H
#define KVX_TESTS_TOOLS_TOOLRUNNER_H

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace ToolTest {

struct Result {
    int status = -1; // exit status, or 128 + signal number
    std::string out;
    std::string err;
};

inline std::string readFile(std::string const &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

inline void writeFile(std::string const &path, std::string const &bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// A file of tests/data/tools.
inline std::string dataPath(std::string const &name) {
    return std::string(KVX_TEST_DATA_DIR) + "/tools/" + name;
}
inline std::string data(std::string const &name) {
    return readFile(dataPath(name));
}

// A fresh directory under the system's temporary folder, removed at the end.
class Scratch {
public:
    Scratch() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "kvxmsg-test-XXXXXX").string();
        std::vector<char> name(pattern.begin(), pattern.end());
        name.push_back('\0');
        char *made = mkdtemp(name.data());
        EXPECT_NE(nullptr, made);
        folder = made != nullptr ? made : "";
    }
    ~Scratch() {
        std::error_code ignored;
        if (!folder.empty())
            std::filesystem::remove_all(folder, ignored);
    }
    Scratch(Scratch const &) = delete;
    Scratch &operator=(Scratch const &) = delete;

    std::string path(std::string const &name) const { return folder + "/" + name; }

private:
    std::string folder;
};

// Runs kvxmsg with `args`, feeding `input` on standard input.
inline Result run(std::vector<std::string> const &args, std::string const &input = std::string()) {
    Scratch io;
    std::string inPath = io.path("stdin"), outPath = io.path("stdout"), errPath = io.path("stderr");
    writeFile(inPath, input);
    std::vector<std::string> words = {KVXMSG_PATH};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, inPath.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    pid_t child = 0;
    Result result;
    int spawned = posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(0, spawned) << "cannot start " << KVXMSG_PATH;
    if (spawned != 0)
        return result;
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = readFile(outPath);
    result.err = readFile(errPath);
    return result;
}

// Bytes written as hexadecimal pairs, for readable failures on frames.
inline std::string hex(std::string const &bytes) {
    std::string out;
    char pair[4];
    for (unsigned char c : bytes) {
        std::snprintf(pair, sizeof pair, "%02X ", c);
        out += pair;
    }
    return out;
}

} // namespace ToolTest

#endif // KVX_TESTS_TOOLS_TOOLRUNNER_H
