// Characters and tokens of scene files.
#include "scene_lexer.h"
#include <algorithm>
#include <array>
#include <cstring>

namespace ruvell {

// Behind every token that was pushed back. No token holds a carriage return.
static constexpr std::string_view pushback_end = " \r";

std::unique_ptr<SceneLexer> SceneLexer::openFile(const std::string& path,
                                                 std::function<bool()> is_over)
{
    const gzFile file = gzopen(path.c_str(), "rb");
    if (!file)
        return nullptr;
    std::unique_ptr<SceneLexer> lexer(new SceneLexer);
    lexer->file = file;
    lexer->is_over = std::move(is_over);
    lexer->buffer.resize(buffer_size + 1);
    lexer->token.resize(token_size);
    lexer->refill();
    return lexer;
}

std::unique_ptr<SceneLexer> SceneLexer::overText(std::string text, int line)
{
    std::unique_ptr<SceneLexer> lexer(new SceneLexer);
    lexer->text = std::move(text);
    lexer->text.push_back(static_cast<char>(end_marker));
    lexer->cursor = reinterpret_cast<const unsigned char*>(lexer->text.data());
    lexer->data_end = lexer->cursor + lexer->text.size() - 1;
    lexer->token.resize(token_size);
    lexer->line = line;
    return lexer;
}

SceneLexer::~SceneLexer()
{
    if (file)
        gzclose(file);
}

// Fills the buffer again and puts the end marker behind it as a guard.
void SceneLexer::refill()
{
    const int count = file && !is_over() ? gzread(file, buffer.data(), buffer_size) : 0;
    reached_end = count <= 0;
    if (!file)
        return;
    int code = Z_OK;
    if (count <= 0)
        gzerror(file, &code);
    read_error |= code != Z_OK && code != Z_STREAM_END;
    cursor = buffer.data();
    data_end = cursor + std::max(count, 0);
    buffer[static_cast<size_t>(std::max(count, 0))] = end_marker;
}

int SceneLexer::nextChar()
{
    while (is_pending) {
        if (pending_cursor == pending.size())
            is_pending = false;
        else if (const char c = pending[pending_cursor++]; c != '\r')
            return static_cast<unsigned char>(c);
    }
    for (;;) {
        if (cursor == data_end) {
            if (!reached_end)
                refill();
            if (reached_end)
                return end_marker;
        }
        const int c = *cursor++;
        if (c == '\r')
            continue;
        if (c == end_marker && !marker_line)
            marker_line = line;
        return c;
    }
}

// Puts back a character that is not the end of the input.
void SceneLexer::unget()
{
    if (is_pending)
        --pending_cursor;
    else
        --cursor;
}

int SceneLexer::readChar()
{
    const int c = nextChar();
    if (c == '\n')
        countNewline();
    return c;
}

int SceneLexer::peek()
{
    const int c = nextChar();
    if (c != end_marker || !reached_end)
        unget();
    return c;
}

bool SceneLexer::atEnd()
{
    if (is_pending && pending_cursor < pending.size())
        return false;
    if (cursor == data_end && !reached_end)
        refill();
    return reached_end && cursor == data_end;
}

void SceneLexer::countNewline()
{
    ++reader_line;
    if (!is_pending)
        ++line;
}

// The library counts a line even when the comment ends with the input.
void SceneLexer::skipRestOfLine()
{
    int c;
    do
        c = nextChar();
    while (c != '\n' && c != end_marker);
    countNewline();
}

bool SceneLexer::skipBlanks()
{
    for (;;) {
        const int c = nextChar();
        if (c == '#')
            skipRestOfLine();
        else if (c == '\n')
            countNewline();
        else if (c == end_marker)
            return false;
        else if (c != '\t' && c != ' ') {
            unget();
            return true;
        }
    }
}

// Characters that mean nothing special inside a token.
static constexpr auto is_plain = [] {
    std::array<bool, 256> table{};
    for (size_t c = 0; c < table.size(); ++c)
        table[c] = c != 0 && c != '\t' && c != '\n' && c != '\r' && c != ' ' && c != '"' &&
                   c != '#' && c != '\\' && c != SceneLexer::end_marker;
    return table;
}();

std::string_view SceneLexer::readToken()
{
    skipBlanks();
    token_length = 0;
    is_cut = false;
    if (is_pending) {
        token_line = pending_line;
        takePushedBack();
    } else {
        token_line = line;
        readTokenText();
    }
    return { token.data(), token_length };
}

// Pushed-back tokens are complete; quotes and the like in them mean nothing any more.
void SceneLexer::takePushedBack()
{
    const size_t end = pending.find(pushback_end, pending_cursor);
    token_length = std::min(end - pending_cursor, token_size - 1);
    std::memcpy(token.data(), pending.data() + pending_cursor, token_length);
    pending_cursor = end + pushback_end.size();
}

// The usual case in a loop of its own.
void SceneLexer::storePlainRun()
{
    const unsigned char* const limit =
        cursor + std::min(static_cast<size_t>(data_end - cursor), token_size - 1 - token_length);
    const unsigned char* run = cursor;
    while (run != limit && is_plain[*run])
        ++run;
    const auto length = static_cast<size_t>(run - cursor);
    std::memcpy(token.data() + token_length, cursor, length);
    token_length += length;
    cursor = run;
}

void SceneLexer::readTokenText()
{
    bool escape_toggle = false;
    for (;;) {
        storePlainRun();
        if (token_length == token_size - 1) {
            cut_token_line = cut_token_line ? cut_token_line : line;
            return;
        }
        const bool is_quoted = wasQuoted();
        const int c = nextChar();
        switch (c) {
        case 0: nul_line = nul_line ? nul_line : line; return;
        case end_marker: return;
        case '\n':
            if (!is_quoted)
                return countNewline();
            ++line; // the library does not count it
            store(c);
            break;
        case '\t':
        case ' ':
            if (!is_quoted)
                return;
            store(c);
            break;
        case '"':
            store(c);
            if (is_quoted)
                return;
            break;
        case '\\':
            if (peek() == '"') {
                store(nextChar());
                escape_toggle = !escape_toggle;
            } else
                store(c);
            break;
        case '#':
            if (!escape_toggle) {
                is_cut = is_quoted;
                return skipRestOfLine();
            }
            store(c);
            break;
        default: store(c);
        }
    }
}

std::string SceneLexer::unquote(std::string_view text)
{
    if (text.size() < 3)
        return "";
    if (text.front() == '"' || text.front() == '<')
        text = text.substr(1, text.size() - 2);
    return std::string(text);
}

std::string SceneLexer::readClosedToken()
{
    std::string word(readToken());
    if (is_cut)
        word += '"';
    return word;
}

std::string SceneLexer::readWord()
{
    std::string word = readClosedToken();
    if (wasQuoted())
        word = unquote(word);
    std::replace(word.begin(), word.end(), '\\', '/');
    return word;
}

void SceneLexer::pushBack(std::string_view a, std::string_view b, std::string_view c)
{
    pending.clear();
    for (const std::string_view pushed : { a, b, c })
        (pending += pushed) += pushback_end;
    pending_cursor = 0;
    is_pending = true;
    pending_line = token_line;
}

} // namespace ruvell
