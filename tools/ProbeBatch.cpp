// The batch: finds the files, runs one child zirk-probe per file (always with
// --json, so that the parent can build its table), and reports the results in
// the order the files were found, whatever order the children end in.
#include "tools/ProbeBatch.h"
#include "tools/ProbeSupport.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include <nlohmann/json.hpp>

namespace zirk_probe {
namespace {

using json = nlohmann::ordered_json;

// kExitCodes in zirk-probe.cpp.
const int kExitOk = 0;
const int kExitUnrecognised = 3;
const int kExitSomeFilesFailed = 7;

// A child's stderr kept (its end: a fatal check's message is the last line).
const size_t kStderrKept = 16 * 1024;
// Lines of a child's stderr shown under its file in text.
const size_t kStderrLinesShown = 6;
// Files not recognised listed by name in the closing table.
const size_t kUnrecognisedListed = 20;
const int kProgressIntervalMs = 200;

// ---------------------------------------------------------------------------
// Finding the files

// One file of the batch. `problem` is set for an entry found while walking
// that cannot be probed (an unreadable directory, a dangling link).
struct Item {
    std::string path;
    std::string problem;
};

bool extensionWanted(const std::string& path, const std::vector<std::string>& extensions) {
    if (extensions.empty()) return true;
    size_t slash = path.rfind('/');
    size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return false;
    std::string ext = path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    return std::find(extensions.begin(), extensions.end(), ext) != extensions.end();
}

std::string joinPath(const std::string& dir, const std::string& name) {
    return !dir.empty() && dir.back() == '/' ? dir + name : dir + "/" + name;
}

// The names in `dir` but . and .., in byte order.
bool listDirectory(const std::string& dir, std::vector<std::string>* names, std::string* error) {
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) {
        *error = errnoText("cannot read the directory", errno);
        return false;
    }
    errno = 0;
    while (struct dirent* e = readdir(d)) {
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) names->push_back(e->d_name);
        errno = 0;
    }
    int err = errno;
    closedir(d);
    if (err != 0) {
        *error = errnoText("cannot read the directory", err);
        return false;
    }
    std::sort(names->begin(), names->end());
    return true;
}

using DirectoryId = std::pair<dev_t, ino_t>;

// Walks `root` depth first, entries in byte order, with an explicit stack.
// Links are followed, but each directory is entered once (`visited`), so a
// link back up the tree ends there. Regular files are kept; FIFOs, sockets
// and devices are left out.
void walkDirectory(const std::string& root, const std::vector<std::string>& extensions,
                   std::set<DirectoryId>* visited, std::vector<Item>* items) {
    struct Frame {
        std::string dir;
        std::vector<std::string> names;
        size_t next = 0;
    };
    std::vector<Frame> stack;
    auto enter = [&](const std::string& dir) {
        Frame frame;
        frame.dir = dir;
        std::string error;
        if (listDirectory(dir, &frame.names, &error)) {
            stack.push_back(std::move(frame));
        } else {
            items->push_back({dir, error});
        }
    };
    enter(root);
    while (!stack.empty()) {
        Frame& top = stack.back();
        if (top.next == top.names.size()) {
            stack.pop_back();
            continue;
        }
        std::string path = joinPath(top.dir, top.names[top.next++]);
        struct stat st;
        if (stat(path.c_str(), &st) != 0) {
            if (extensionWanted(path, extensions)) items->push_back({path, errnoText("cannot read", errno)});
        } else if (S_ISDIR(st.st_mode)) {
            if (visited->insert({st.st_dev, st.st_ino}).second) enter(path);
        } else if (S_ISREG(st.st_mode) && extensionWanted(path, extensions)) {
            items->push_back({path, ""});
        }
    }
}

// Files as given (filtered by --ext like the ones found), directories walked.
std::vector<Item> collectItems(const BatchRequest& request) {
    std::vector<Item> items;
    std::set<DirectoryId> visited;
    for (const std::string& path : request.paths) {
        struct stat st;
        bool isDirectory = stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
        if (isDirectory) {
            if (visited.insert({st.st_dev, st.st_ino}).second) {
                walkDirectory(path, request.extensions, &visited, &items);
            }
        } else if (extensionWanted(path, request.extensions)) {
            items.push_back({path, ""});
        }
    }
    return items;
}

// ---------------------------------------------------------------------------
// Running the children

// How one file's probe ended. `problem` is set when no child ran for it.
struct Outcome {
    std::string problem;
    int exitCode = 0;
    int signal = 0;  // the signal that ended the child, or 0
    std::string out, err;
};

// The children running at once: started with fork + execv, their stdout and
// stderr read through pipes as they come (so that neither pipe fills while
// the other is waited on), reaped when both pipes close.
class ChildPool {
public:
    ChildPool(const std::string& self, const std::vector<std::string>& args) : mSelf(self), mArgs(args) {}
    ~ChildPool() {
        for (Child& c : mChildren) {
            closeFd(c, 0);
            closeFd(c, 1);
            kill(c.pid, SIGKILL);
            waitFor(c);
        }
    }

    size_t running() const { return mChildren.size(); }

    // Starts a child for `file`; false (with `*problem`) when none could start.
    bool start(size_t index, const std::string& file, std::string* problem) {
        int outPipe[2], errPipe[2];
        if (pipe2(outPipe, O_CLOEXEC) != 0) {
            *problem = errnoText("cannot start a child", errno);
            return false;
        }
        if (pipe2(errPipe, O_CLOEXEC) != 0) {
            *problem = errnoText("cannot start a child", errno);
            close(outPipe[0]);
            close(outPipe[1]);
            return false;
        }
        // Built before fork: the child only calls what is safe after it.
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>("zirk-probe"));
        for (const std::string& a : mArgs) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(const_cast<char*>("--"));
        argv.push_back(const_cast<char*>(file.c_str()));
        argv.push_back(nullptr);
        pid_t pid = fork();
        if (pid == 0) {
            int in = open("/dev/null", O_RDONLY | O_CLOEXEC);
            if (in >= 0) dup2(in, STDIN_FILENO);
            dup2(outPipe[1], STDOUT_FILENO);
            dup2(errPipe[1], STDERR_FILENO);
            execv(mSelf.c_str(), argv.data());
            static const char kMessage[] = "zirk-probe: cannot run the probe for this file\n";
            ssize_t ignored = write(STDERR_FILENO, kMessage, sizeof(kMessage) - 1);
            (void)ignored;
            _exit(127);
        }
        int forkErr = errno;
        close(outPipe[1]);
        close(errPipe[1]);
        if (pid < 0) {
            close(outPipe[0]);
            close(errPipe[0]);
            *problem = errnoText("cannot start a child", forkErr);
            return false;
        }
        Child child;
        child.index = index;
        child.pid = pid;
        child.fds[0] = outPipe[0];
        child.fds[1] = errPipe[0];
        mChildren.push_back(std::move(child));
        return true;
    }

    // Waits up to `timeoutMs` (-1: no limit) for output, reads what came,
    // and moves the children that ended to `ended` as (index, outcome).
    void wait(int timeoutMs, std::vector<std::pair<size_t, Outcome>>* ended) {
        std::vector<pollfd> fds;
        std::vector<std::pair<size_t, int>> owners;  // (child, 0 stdout / 1 stderr)
        for (size_t i = 0; i < mChildren.size(); ++i) {
            for (int k = 0; k < 2; ++k) {
                if (mChildren[i].fds[k] < 0) continue;
                fds.push_back({mChildren[i].fds[k], POLLIN, 0});
                owners.push_back({i, k});
            }
        }
        if (!fds.empty() && poll(fds.data(), fds.size(), timeoutMs) < 0 && errno != EINTR) {
            // Nothing can be read any more: the children are ended rather than waited on forever.
            for (Child& c : mChildren) {
                kill(c.pid, SIGKILL);
                closeFd(c, 0);
                closeFd(c, 1);
            }
        }
        for (size_t j = 0; j < fds.size(); ++j) {
            if (fds[j].revents != 0) drain(mChildren[owners[j].first], owners[j].second);
        }
        for (size_t i = 0; i < mChildren.size();) {
            Child& c = mChildren[i];
            if (c.fds[0] >= 0 || c.fds[1] >= 0) {
                ++i;
                continue;
            }
            waitFor(c);
            ended->push_back({c.index, std::move(c.outcome)});
            mChildren.erase(mChildren.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }

private:
    struct Child {
        size_t index = 0;
        pid_t pid = -1;
        int fds[2] = {-1, -1};
        Outcome outcome;
    };

    void closeFd(Child& c, int k) {
        if (c.fds[k] >= 0) close(c.fds[k]);
        c.fds[k] = -1;
    }

    // One read; the pipe is closed at its end or on an error.
    void drain(Child& c, int k) {
        char buffer[65536];
        ssize_t n = read(c.fds[k], buffer, sizeof(buffer));
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) return;
        if (n <= 0) {
            closeFd(c, k);
            return;
        }
        std::string& to = k == 0 ? c.outcome.out : c.outcome.err;
        to.append(buffer, static_cast<size_t>(n));
        if (k == 1 && to.size() > 2 * kStderrKept) to.erase(0, to.size() - kStderrKept);
    }

    static void waitFor(Child& c) {
        int status = 0;
        pid_t got;
        do {
            got = waitpid(c.pid, &status, 0);
        } while (got < 0 && errno == EINTR);
        if (got < 0) {
            c.outcome.problem = errnoText("lost the child", errno);
        } else if (WIFSIGNALED(status)) {
            c.outcome.signal = WTERMSIG(status);
        } else if (WIFEXITED(status)) {
            c.outcome.exitCode = WEXITSTATUS(status);
        }
    }

    std::string mSelf;
    std::vector<std::string> mArgs;
    std::vector<Child> mChildren;
};

// ---------------------------------------------------------------------------
// Reporting

std::vector<std::string> nonEmptyLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = std::min(text.find('\n', start), text.size());
        std::string line = text.substr(start, end - start);
        static const char kPrefix[] = "zirk-probe: ";
        if (line.compare(0, sizeof(kPrefix) - 1, kPrefix) == 0) line.erase(0, sizeof(kPrefix) - 1);
        if (!line.empty()) lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

std::string signalName(int sig) {
    const char* name = sigabbrev_np(sig);
    return name ? std::string("SIG") + name : "signal " + std::to_string(sig);
}

// A member of a JSON object, or null when `object` is no object or lacks it.
const json* memberOf(const json& object, const char* key) {
    if (!object.is_object()) return nullptr;
    auto it = object.find(key);
    return it != object.end() ? &*it : nullptr;
}

std::string stringOf(const json& object, const char* key, const char* fallback) {
    const json* m = memberOf(object, key);
    return m != nullptr && m->is_string() ? m->get<std::string>() : fallback;
}

std::string seconds(const json& us) {
    char text[32];
    snprintf(text, sizeof(text), "%.3f s", us.get<double>() / 1e6);
    return text;
}

// One line about a track: MIME type, picture or sound, duration, and what
// reading it gave.
std::string trackLine(const json& track) {
    static const json kNone = json::object();
    const json* m = memberOf(track, "meta");
    const json& meta = m != nullptr ? *m : kNone;
    const json* index = memberOf(track, "index");
    std::string line = "track " + (index ? index->dump() : "?") + ": " + stringOf(meta, "mime", "?");
    const json *width = memberOf(meta, "widt"), *height = memberOf(meta, "heig");
    if (width && height) line += " " + width->dump() + "x" + height->dump();
    if (const json* rate = memberOf(meta, "srte")) line += " " + rate->dump() + " Hz";
    if (const json* channels = memberOf(meta, "#chn")) line += " " + channels->dump() + " ch";
    const json* duration = memberOf(meta, "dura");
    if (duration && duration->is_number()) line += ", " + seconds(*duration);
    const json* count = memberOf(track, "sample_count");
    const json* bytes = memberOf(track, "bytes");
    if (count && bytes) {
        line += ", " + count->dump() + " samples, " + bytes->dump() + " bytes";
        std::string end = stringOf(track, "end", "?");
        if (end != "ERROR_END_OF_STREAM" && end != "COUNT_REACHED") line += ", ended " + end;
    }
    return line;
}

// The tracks of a document whose extractor was made, or null.
const json* tracksOf(const json* doc) {
    const json* tracks = doc ? memberOf(*doc, "tracks") : nullptr;
    return tracks && tracks->is_array() ? tracks : nullptr;
}

// Writes each file's result as it comes (in input order) and keeps what the
// closing table needs.
class Report {
public:
    explicit Report(bool asJson) : mJson(asJson) {}

    size_t failures() const { return mFailed.size() + mUnrecognised.size(); }

    void add(const std::string& path, const Outcome& o) {
        ++mFiles;
        json doc;
        bool hasDoc = false;
        if (o.problem.empty() && !o.out.empty()) {
            doc = json::parse(o.out, nullptr, false);
            hasDoc = doc.is_object();
        }
        std::vector<std::string> errLines = nonEmptyLines(o.err);
        std::string message = !o.problem.empty() ? o.problem : !errLines.empty() ? errLines.back() : "";
        bool ok = o.problem.empty() && o.signal == 0 && o.exitCode == kExitOk && hasDoc;
        std::string status;  // how it failed, for the table
        if (!o.problem.empty()) {
            status = o.problem;
        } else if (o.signal != 0) {
            status = "killed by " + signalName(o.signal) + (message.empty() ? "" : ": " + message);
        } else if (!ok) {
            if (message.empty()) message = hasDoc ? "" : "no document";
            status = "exit " + std::to_string(o.exitCode) + (message.empty() ? "" : ": " + message);
        }
        if (const json* tracks = tracksOf(hasDoc ? &doc : nullptr)) {
            ++mContainers[stringOf(doc, "container", "?")];
            for (const json& t : *tracks) {
                const json* meta = memberOf(t, "meta");
                ++mCodecs[meta ? stringOf(*meta, "mime", "?") : "?"];
            }
        }
        if (!ok && o.problem.empty() && o.signal == 0 && o.exitCode == kExitUnrecognised) {
            mUnrecognised.push_back(path);
        } else if (!ok) {
            mFailed.push_back({path, status});
        }
        if (mJson) {
            printJson(path, o, hasDoc ? &doc : nullptr, message);
        } else {
            std::string brief = !o.problem.empty() ? o.problem
                                : o.signal != 0    ? signalName(o.signal)
                                                   : "exit " + std::to_string(o.exitCode);
            printText(path, ok, hasDoc ? &doc : nullptr, errLines, brief);
        }
        fflush(stdout);
    }

    // The closing table (text only); in JSON a failure count on stderr.
    void finish() {
        if (mJson) {
            if (failures() != 0) fprintf(stderr, "zirk-probe: %zu of %zu files failed\n", failures(), mFiles);
            return;
        }
        printf("== %zu file%s: %zu probed, %zu not recognised, %zu failed\n", mFiles, mFiles == 1 ? "" : "s",
               mFiles - failures(), mUnrecognised.size(), mFailed.size());
        printCounts("files per container", mContainers);
        printCounts("tracks per codec", mCodecs);
        if (!mUnrecognised.empty()) printf("not recognised:\n");
        for (size_t i = 0; i < mUnrecognised.size() && i < kUnrecognisedListed; ++i) {
            printf("  %s\n", mUnrecognised[i].c_str());
        }
        if (mUnrecognised.size() > kUnrecognisedListed) {
            printf("  ... and %zu more\n", mUnrecognised.size() - kUnrecognisedListed);
        }
        if (!mFailed.empty()) printf("failed:\n");
        for (const auto& f : mFailed) printf("  %s: %s\n", f.first.c_str(), f.second.c_str());
        fflush(stdout);
    }

private:
    static void printJson(const std::string& path, const Outcome& o, const json* doc, const std::string& message) {
        json line;
        if (doc != nullptr) {
            line = *doc;
        } else {
            line["file"] = path;
            line["error"] = message;
            if (o.signal != 0) {
                line["signal"] = signalName(o.signal);
            } else if (o.problem.empty()) {
                line["exit"] = o.exitCode;
            }
        }
        std::string text = line.dump(-1, ' ', false, json::error_handler_t::replace);
        printf("%s\n", text.c_str());
    }

    // The child's stderr is shown as it was, so `brief` only says how it ended.
    static void printText(const std::string& path, bool ok, const json* doc, const std::vector<std::string>& errLines,
                          const std::string& brief) {
        printf("== %s\n", path.c_str());
        if (const json* tracks = tracksOf(doc)) {
            const json* sniff = memberOf(*doc, "sniff");
            std::string line = stringOf(*doc, "container", "?") + (sniff && sniff->is_null() ? " (given)" : "");
            line += ", " + std::to_string(tracks->size()) + " tracks";
            const json* meta = memberOf(*doc, "meta");
            const json* duration = meta ? memberOf(*meta, "dura") : nullptr;
            if (duration && duration->is_number()) line += ", " + seconds(*duration);
            printf("   %s\n", line.c_str());
            for (const json& t : *tracks) printf("   %s\n", trackLine(t).c_str());
            if (const json* totals = memberOf(*doc, "totals")) printf("   totals: %s\n", totals->dump().c_str());
        }
        size_t first = errLines.size() > kStderrLinesShown ? errLines.size() - kStderrLinesShown : 0;
        for (size_t i = first; i < errLines.size(); ++i) printf("   | %s\n", errLines[i].c_str());
        if (!ok) printf("   failed (%s)\n", brief.c_str());
    }

    static void printCounts(const char* title, const std::map<std::string, size_t>& counts) {
        if (counts.empty()) return;
        std::vector<std::pair<std::string, size_t>> rows(counts.begin(), counts.end());
        std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
        printf("%s:\n", title);
        for (const auto& r : rows) printf("  %6zu  %s\n", r.second, r.first.c_str());
    }

    bool mJson;
    size_t mFiles = 0;
    std::map<std::string, size_t> mContainers, mCodecs;
    std::vector<std::string> mUnrecognised;
    std::vector<std::pair<std::string, std::string>> mFailed;  // (path, how)
};

// Files done, files per second and time so far, on one line of stderr
// rewritten in place; only when stderr is a terminal.
class Progress {
public:
    explicit Progress(size_t total) : mOn(isatty(STDERR_FILENO) != 0), mTotal(total), mStart(nowSeconds()) {}

    void show(size_t done, bool force) {
        double now = nowSeconds();
        if (!mOn || (!force && now - mShownAt < kProgressIntervalMs / 1000.0)) return;
        mShownAt = now;
        double elapsed = now - mStart;
        fprintf(stderr, "\r\033[K[%zu/%zu] %.1f files/s, %.1f s", done, mTotal, elapsed > 0 ? done / elapsed : 0.0,
                elapsed);
        fflush(stderr);
    }

    void clear() {
        if (mOn) fputs("\r\033[K", stderr);
    }

private:
    bool mOn;
    size_t mTotal;
    double mStart;
    double mShownAt = 0;
};

}  // namespace

int runBatch(const BatchRequest& request) {
    std::vector<Item> items = collectItems(request);
    if (items.empty()) {
        fprintf(stderr, "zirk-probe: no files to probe\n");
        return kExitOk;
    }
    std::vector<std::string> childArgs = request.childArgs;
    if (std::find(childArgs.begin(), childArgs.end(), "--json") == childArgs.end()) childArgs.push_back("--json");
    ChildPool pool(request.self, childArgs);
    Report report(request.json);
    Progress progress(items.size());
    const size_t jobs = std::max(1u, request.jobs);
    // Results that ended before an earlier file's, held until it is written.
    std::vector<std::unique_ptr<Outcome>> done(items.size());
    size_t next = 0, written = 0, finished = 0;
    while (written < items.size()) {
        for (; next < items.size() && pool.running() < jobs; ++next) {
            std::string problem = items[next].problem;
            if (!problem.empty() || !pool.start(next, items[next].path, &problem)) {
                done[next].reset(new Outcome);
                done[next]->problem = problem;
                ++finished;
            }
        }
        if (written < items.size() && done[written]) {
            progress.clear();
            for (; written < items.size() && done[written]; ++written) {
                report.add(items[written].path, *done[written]);
                done[written].reset();
            }
            progress.show(finished, true);
        }
        if (pool.running() == 0) continue;
        std::vector<std::pair<size_t, Outcome>> ended;
        pool.wait(kProgressIntervalMs, &ended);
        for (auto& e : ended) done[e.first].reset(new Outcome(std::move(e.second)));
        finished += ended.size();
        progress.show(finished, false);
    }
    progress.clear();
    report.finish();
    return report.failures() == 0 ? kExitOk : kExitSomeFilesFailed;
}

}  // namespace zirk_probe
