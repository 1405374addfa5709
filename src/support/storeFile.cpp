#include "support/storeFile.h"

#include <cstdlib>

namespace {

// A growing list of lines, always terminated by a null pointer.
class LineList {
public:
    explicit LineList(size_t capacity)
        : m_lines(static_cast<char**>(std::calloc(capacity + 1, sizeof(char*)))),
          m_capacity(capacity) {}
    ~LineList() { freeStoredFile(m_lines); }
    LineList(const LineList&) = delete;
    LineList& operator=(const LineList&) = delete;

    bool Valid() const { return m_lines != nullptr; }

    // Takes ownership of `line`. Returns false, with the line freed, if memory runs out.
    bool Append(char* line) {
        if (m_count == m_capacity && !Grow()) {
            std::free(line);
            return false;
        }
        m_lines[m_count++] = line;
        m_lines[m_count] = nullptr;
        return true;
    }

    char** Release() {
        char** lines = m_lines;
        m_lines = nullptr;
        return lines;
    }

private:
    bool Grow() {
        const size_t capacity = 2 * m_capacity;
        void* larger = std::realloc(m_lines, (capacity + 1) * sizeof(char*));
        if (larger == nullptr)
            return false;
        m_lines = static_cast<char**>(larger);
        m_capacity = capacity;
        return true;
    }

    char** m_lines;
    size_t m_capacity;
    size_t m_count = 0;
};

}  // namespace

char** storeFile(FILE* stream, int initialLines, int /*lineGrowth*/, int /*lineLength*/) {
    LineList lines(initialLines > 0 ? static_cast<size_t>(initialLines) : 1);
    if (!lines.Valid())
        return nullptr;
    for (;;) {
        char* line = nullptr;
        size_t size = 0;
        if (getline(&line, &size, stream) < 0) {
            std::free(line);
            // When memory runs out, getline fails without the end-of-file or error flag.
            return feof(stream) && !ferror(stream) ? lines.Release() : nullptr;
        }
        if (!lines.Append(line))
            return nullptr;
    }
}

void freeStoredFile(char** lines) {
    if (lines == nullptr)
        return;
    for (char** line = lines; *line != nullptr; ++line)
        std::free(*line);
    std::free(static_cast<void*>(lines));
}
