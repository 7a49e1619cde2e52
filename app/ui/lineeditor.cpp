// SPDX-License-Identifier: MIT
#include "app/ui/lineeditor.h"

#ifdef KESTROVA_LIBEDIT

#include <dlfcn.h>
#include <fcntl.h>
#include <histedit.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <cwchar>

#include "app/ui/interrupts.h"

namespace app {

namespace {

constexpr int kHistory = 200;  // lines

/// The functions of the library that are used. It is never unloaded.
struct Functions {
    decltype(&::el_init) mInit = nullptr;
    decltype(&::el_end) mEnd = nullptr;
    decltype(&::el_set) mSet = nullptr;
    decltype(&::el_get) mGet = nullptr;
    decltype(&::el_gets) mGets = nullptr;
    decltype(&::history_init) mHistoryInit = nullptr;
    decltype(&::history_end) mHistoryEnd = nullptr;
    decltype(&::history) mHistory = nullptr;

    bool load() {
        void* library = nullptr;
        for (const char* const name : {"libedit.so.2", "libedit.so.0"}) {
            library = library != nullptr ? library : ::dlopen(name, RTLD_NOW | RTLD_LOCAL);
        }
        return library != nullptr && find(library, "el_init", mInit) &&
               find(library, "el_end", mEnd) && find(library, "el_set", mSet) &&
               find(library, "el_get", mGet) && find(library, "el_gets", mGets) &&
               find(library, "history_init", mHistoryInit) &&
               find(library, "history_end", mHistoryEnd) && find(library, "history", mHistory);
    }

private:
    template <typename Function>
    static bool find(void* library, const char* name, Function& function) {
        function = reinterpret_cast<Function>(::dlsym(library, name));
        return function != nullptr;
    }
};

class LibeditEditor : public LineEditor {
public:
    LibeditEditor(const Functions& functions, std::FILE* input, const Interrupts& interrupts)
        : mFunctions(functions),
          mInput(input),
          mInterrupts(interrupts),
          mEditor(functions.mInit("kestrova", input, stderr, stderr)),
          mHistory(functions.mHistoryInit()) {
        HistEvent event = {};
        (void)mFunctions.mHistory(mHistory, &event, H_SETSIZE, kHistory);
        (void)mFunctions.mHistory(mHistory, &event, H_SETUNIQUE, 1);
        (void)mFunctions.mSet(mEditor, EL_CLIENTDATA, this);
        (void)mFunctions.mSet(mEditor, EL_PROMPT, &promptOf);
        (void)mFunctions.mSet(mEditor, EL_EDITOR, "emacs");
        (void)mFunctions.mSet(mEditor, EL_SIGNAL, 0);
        (void)mFunctions.mSet(mEditor, EL_HIST, mFunctions.mHistory, mHistory);
        (void)mFunctions.mSet(mEditor, EL_GETCFN, &readCharacter);
        sFunctions = &mFunctions;
    }

    ~LibeditEditor() override {
        mFunctions.mEnd(mEditor);
        mFunctions.mHistoryEnd(mHistory);
        (void)std::fclose(mInput);
    }
    LibeditEditor(const LibeditEditor&) = delete;
    LibeditEditor& operator=(const LibeditEditor&) = delete;

    Outcome read(const char* prompt, std::string& line) override {
        mPrompt = prompt;
        mInterrupted = false;
        int length = 0;
        const char* const text = mFunctions.mGets(mEditor, &length);
        if (mInterrupted) {
            return eInterrupted;
        }
        if (text == nullptr || length <= 0) {
            return eEnd;
        }
        line.assign(text, static_cast<std::size_t>(length));
        if (line.find_first_not_of(" \n") != std::string::npos) {
            HistEvent event = {};
            (void)mFunctions.mHistory(mHistory, &event, H_ENTER, line.c_str());
        }
        if (line.back() == '\n') {
            line.pop_back();
        }
        return eLine;
    }

private:
    static LibeditEditor& self(EditLine* editor) {
        void* data = nullptr;
        (void)sFunctions->mGet(editor, EL_CLIENTDATA, &data);
        return *static_cast<LibeditEditor*>(data);
    }

    static char* promptOf(EditLine* editor) { return const_cast<char*>(self(editor).mPrompt); }

    static int readCharacter(EditLine* editor, wchar_t* character) {
        return self(editor).readOne(*character);
    }

    /// Returns 1 for a character, 0 at the end, -1 after a signal or an error.
    int readOne(wchar_t& character) {
        std::mbstate_t state = {};
        for (;;) {
            char byte = 0;
            const int count = readByte(byte);
            if (count <= 0) {
                return count;
            }
            const std::size_t length = std::mbrtowc(&character, &byte, 1, &state);
            if (length == static_cast<std::size_t>(-2)) {
                continue;  // more bytes of this character follow
            }
            if (length == static_cast<std::size_t>(-1)) {
                state = {};  // not of this character set: dropped
                continue;
            }
            return 1;
        }
    }

    int readByte(char& byte) {
        const int terminal = ::fileno(mInput);
        for (;;) {
            pollfd sources[] = {{terminal, POLLIN, 0}, {mInterrupts.descriptor(), POLLIN, 0}};
            if (::poll(sources, 2, -1) < 0 && errno != EINTR) {
                return -1;
            }
            if ((sources[1].revents & POLLIN) != 0 && mInterrupts.take()) {
                mInterrupted = true;
                return -1;
            }
            if (sources[0].revents == 0) {
                continue;
            }
            const ssize_t count = ::read(terminal, &byte, 1);
            if (count >= 0 || (errno != EINTR && errno != EAGAIN)) {
                return static_cast<int>(count);
            }
        }
    }

    static const Functions* sFunctions;

    Functions mFunctions;
    std::FILE* mInput;
    const Interrupts& mInterrupts;
    EditLine* mEditor;
    History* mHistory;
    const char* mPrompt = "";
    bool mInterrupted = false;
};

const Functions* LibeditEditor::sFunctions = nullptr;

}  // namespace

std::unique_ptr<LineEditor> LineEditor::create(int terminal, const Interrupts& interrupts) {
    Functions functions;
    if (!functions.load()) {
        return nullptr;
    }
    // Enables characters beyond ASCII, if the locale has them.
    if (std::setlocale(LC_CTYPE, "") == nullptr) {
        (void)std::setlocale(LC_CTYPE, "C.UTF-8");
    }
    const int copy = ::fcntl(terminal, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    std::FILE* const input = copy < 0 ? nullptr : ::fdopen(copy, "r");
    if (input == nullptr) {
        (void)::close(copy);
        return nullptr;
    }
    return std::make_unique<LibeditEditor>(functions, input, interrupts);
}

}  // namespace app

#else

namespace app {

std::unique_ptr<LineEditor> LineEditor::create(int /*terminal*/, const Interrupts& /*interrupts*/) {
    return nullptr;
}

}  // namespace app

#endif
