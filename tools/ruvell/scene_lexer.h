// The tokens of a scene file (.rvs), plain or gzip-compressed, by the rules of the library's own
// reader, so that whatever is looked for here is found exactly where a load finds it.
#ifndef RUVELL_SCENE_LEXER_H
#define RUVELL_SCENE_LEXER_H

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>
#include <zlib.h>

namespace ruvell {

class SceneLexer {
public:
    static constexpr int end_marker = 0xFF; // what reading yields at the end of the input

    // A file, plain or compressed; null when it cannot be opened. The input ends where it is when
    // is_over, which is asked now and then, says so.
    static std::unique_ptr<SceneLexer> openFile(const std::string& path,
                                                std::function<bool()> is_over);
    // A text that begins on the given line (from 1).
    static std::unique_ptr<SceneLexer> overText(std::string text, int line);

    ~SceneLexer();
    SceneLexer(const SceneLexer&) = delete;
    SceneLexer& operator=(const SceneLexer&) = delete;

    // The next token, quotes included; empty at the end of the input and in front of a NUL. Valid
    // until the next call.
    std::string_view readToken();
    // A token without its quotes, backslashes turned into slashes.
    std::string readWord();
    // A token; one that a comment cut inside its quotes gets the closing one.
    std::string readClosedToken();
    // Whether the token read last began with a quote.
    bool wasQuoted() const { return token_length > 0 && token[0] == '"'; }

    // False at an end marker, which is passed as well.
    bool skipBlanks();
    int readChar();
    int peek(); // the next character, which stays to be read
    // True when the input is used up; a byte 0xFF in the middle of it does not count.
    bool atEnd();

    // Pushes three tokens back, to be read again before the input goes on.
    void pushBack(std::string_view a, std::string_view b, std::string_view c);

    // Line (from 1) on which the last token began, and the one reading has come to.
    int tokenLine() const { return token_line; }
    int currentLine() const { return line; }
    // What the library's reader counts as its line at this point. It misses newlines inside quoted
    // tokens and starts again from -1 behind an include statement.
    int readerLine() const { return reader_line; }
    void restartReaderLine() { reader_line = -1; }

    // Line of the first NUL, of the first byte 0xFF that is not the end of the file, and of the
    // first token that was cut; 0 when there is none.
    int nulLine() const { return nul_line; }
    int markerLine() const { return marker_line; }
    int cutTokenLine() const { return cut_token_line; }
    bool hasReadError() const { return read_error; }
    static std::string unquote(std::string_view text);

private:
    static constexpr size_t buffer_size = 65536;
    static constexpr size_t token_size = 32768;

    SceneLexer() = default;
    void refill();
    int nextChar();
    void unget();
    void countNewline();
    void skipRestOfLine();
    void takePushedBack();
    void readTokenText();
    void storePlainRun();
    void store(int c) { token[token_length++] = static_cast<char>(c); }

    gzFile file = nullptr;
    std::function<bool()> is_over;
    std::string text; // in place of a file
    std::vector<unsigned char> buffer;
    const unsigned char* cursor = nullptr;
    const unsigned char* data_end = nullptr; // the end marker stands here
    bool reached_end = false;
    bool read_error = false;

    std::string pending; // each token followed by a blank and a carriage return
    size_t pending_cursor = 0;
    bool is_pending = false;
    int pending_line = 0; // where the pushed-back tokens began

    std::vector<char> token;
    size_t token_length = 0;
    bool is_cut = false; // the token is quoted and was ended by a comment
    int token_line = 1;
    int line = 1;
    int reader_line = 0;
    int nul_line = 0;
    int marker_line = 0;
    int cut_token_line = 0;
};

} // namespace ruvell

#endif
