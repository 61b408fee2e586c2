// Test helper: installs an assertion handler that counts failed KVX_ASSERTs and
// returns, so a test can check that an assertion fired; the previous handler
// comes back when the recorder goes out of scope. One test thread at a time.
#ifndef KVX_TESTS_VOCABULARY_ASSERTRECORDER_H
#define KVX_TESTS_VOCABULARY_ASSERTRECORDER_H

#include <kvx/KVXCommon.h>

#include <string>

class AssertRecorder {
public:
    AssertRecorder() : previous(KVX::setAssertHandler(&AssertRecorder::record)) {
        state() = State();
    }
    ~AssertRecorder() { KVX::setAssertHandler(previous); }
    AssertRecorder(AssertRecorder const &) = delete;
    AssertRecorder &operator=(AssertRecorder const &) = delete;

    // Number of assertions that failed since construction.
    int fired() const { return state().count; }

    // Text of the last failed expression, empty if none.
    std::string const &lastExpression() const { return state().expression; }

private:
    struct State {
        int count = 0;
        std::string expression;
    };
    static State &state() {
        static State current;
        return current;
    }
    static void record(char const *expression, char const *, int) {
        ++state().count;
        state().expression = expression != nullptr ? expression : "";
    }

    KVX::AssertHandler previous;
};

#endif // KVX_TESTS_VOCABULARY_ASSERTRECORDER_H
