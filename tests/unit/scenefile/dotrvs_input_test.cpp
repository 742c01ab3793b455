// Tests of dotrvs_input: opening, characters, tokens and plain numbers.
#include "scene_fixture.h"

#include "golden.h"
#include "text.h"

#include <bit>
#include <cstring>
#include <random>

using node_tools::formatted;

// ---- Golden vectors ----

TEST_F(SceneFiles, token_kinds_follow_the_golden_vectors)
{
    for (const auto& v : goldenVectors("scenefile", "RvRVSTokenKind"))
        expectGolden(v, "value", RvRVSTokenKind(v["in"]["text"].get<std::string>().c_str()));
}

TEST_F(SceneFiles, unquoting_follows_the_golden_vectors)
{
    for (const auto& v : goldenVectors("scenefile", "RvRVSUnquote")) {
        std::string text = v["in"]["text"].get<std::string>() + std::string(2, '\0');
        RvRVSUnquote(text.data());
        expectGolden(v, "value", text.c_str());
    }
}

// The vectors spell bytes as the characters of the same numbers.
static std::string bytes(const std::string& utf8)
{
    std::string out;
    for (size_t i = 0; i < utf8.size(); ++i) {
        const auto c = static_cast<unsigned char>(utf8[i]);
        if (c < 0x80)
            out.push_back(utf8[i]);
        else
            out.push_back(char((c & 3) << 6 | (static_cast<unsigned char>(utf8[++i]) & 0x3f)));
    }
    return out;
}

TEST_F(SceneFiles, tokens_follow_the_golden_vectors)
{
    for (const auto& v : goldenVectors("scenefile", "tokens")) {
        TextInput input(bytes(v["in"]["text"].get<std::string>()));
        nlohmann::json tokens = nlohmann::json::array(), kinds = nlohmann::json::array();
        for (std::string token; !(token = input.token()).empty();) {
            tokens.push_back(token);
            kinds.push_back(RvRVSTokenKind(token.c_str()));
        }
        expectGolden(v, "tokens", tokens);
        expectGolden(v, "kinds", kinds);
        expectGolden(v, "line", rv::scene_file_line.load());
        EXPECT_EQ(takeProblem(), "") << goldenId(v);
    }
}

TEST_F(SceneFiles, long_tokens_follow_the_golden_vectors)
{
    for (const auto& v : goldenVectors("scenefile", "long_token")) {
        TextInput input(std::string(v["in"]["length"].get<size_t>(), 'x'));
        expectGolden(v, "first_token_length", input.token().size());
        expectGolden(v, "error", takeProblem());
    }
}

// ---- Tokens ----

TEST_F(SceneFiles, a_token_that_is_cut_loses_no_character)
{
    TextInput input(std::string(32767, 'x') + "yz next");
    EXPECT_EQ(input.token().size(), 32767u);
    EXPECT_EQ(takeProblem(), "string longer than 32768 characters");
    EXPECT_EQ(input.token(), "yz");
    EXPECT_EQ(input.token(), "next");
    EXPECT_EQ(TextInput(std::string(32766, 'x')).token().size(), 32766u);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(SceneFiles, words_lose_their_quotes_and_get_slashes)
{
    static const struct {
        const char *text, *word;
    } rows[] = {
        { "plain", "plain" },
        { "\"quoted text\"", "quoted text" },
        { "C:\\tex\\a.tx", "C:/tex/a.tx" },
        { "\"C:\\tex\\a b.tx\"", "C:/tex/a b.tx" },
        { "\"\"", "" },
        { "\"a\"", "a" },
        { "\"unclosed", "unclose" }, // whatever the last character is
        { "\"a\\\"b\"", "a\"b" },
        { "<kept>", "<kept>" },
    };
    for (const auto& row : rows)
        EXPECT_EQ(TextInput(row.text).word(), row.word) << row.text;
}

TEST_F(SceneFiles, required_a_comment_begins_inside_quotes_too_and_closes_them)
{
    static const struct {
        const char *text, *word, *next;
    } rows[] = {
        { "\"a#b\" rest\nnext", "a", "next" },
        { "\"abc#d\"\nnext", "abc", "next" },
        { "\"#d\"\nnext", "", "next" },
        { "\"one \\\" # two\" next", "one \" # two", "next" },
        { "\"two \\\" \\\" # three\"\nnext", "two \" \" ", "next" },
        { "a#b\nnext", "a", "next" },
    };
    for (const auto& row : rows) {
        TextInput input(row.text);
        EXPECT_EQ(input.word(), row.word) << row.text;
        EXPECT_EQ(input.word(), row.next) << row.text;
    }
}

TEST_F(SceneFiles, newlines_in_quotes_are_not_counted)
{
    TextInput input("\"a\nb\nc\" d\ne");
    EXPECT_EQ(input.token(), "\"a\nb\nc\"");
    EXPECT_EQ(rv::scene_file_line, 0);
    EXPECT_EQ(input.token(), "d");
    EXPECT_EQ(rv::scene_file_line, 1);
    EXPECT_EQ(input.file->token_count, 2u);
}

TEST_F(SceneFiles, tokens_that_are_put_back_come_as_they_were)
{
    const char* const texts[] = { "\"a \\\"b\\\" c\"", "x\\\"#y", "\"cut # here\"\n", "plain" };
    for (const char* first : texts)
        for (const char* second : texts) {
            const std::string text = std::string(first) + " " + second + " third fourth";
            TextInput plain(text), again(text);
            char areas[3][64];
            rv::ReadToken tokens[3];
            for (int i = 0; i < 3; ++i) {
                RvRVSReadToken(again.file, areas[i]);
                tokens[i] = { areas[i], again.file->is_cut };
            }
            rv::pushBack(again.file, tokens);
            for (int i = 0; i < 4; ++i)
                EXPECT_EQ(again.word(), plain.word()) << text;
            EXPECT_EQ(again.word(), "");
        }
}

TEST_F(SceneFiles, the_longest_tokens_can_be_put_back)
{
    static const struct {
        std::string token;
        bool is_cut;
        std::string word;
    } rows[] = {
        { '"' + std::string(32765, 'x'), true, std::string(32765, 'x') },
        { std::string(32767, 'y'), false, std::string(32767, 'y') },
    };
    for (const auto& row : rows) {
        TextInput input("");
        const rv::ReadToken token = { row.token.c_str(), row.is_cut };
        rv::pushBack(input.file, { token, token, token });
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(input.word(), row.word);
        EXPECT_EQ(input.token(), "");
    }
}

// The buffer holds 262,144 bytes: the same text reads the same wherever it falls.
TEST_F(SceneFiles, tokens_and_numbers_may_lie_across_the_end_of_the_buffer)
{
    const std::string tail = "alpha \"be ta\" 1.5 -2 300 4e1\r\n5 omega";
    for (size_t offset = 0; offset <= tail.size() + 1; ++offset) {
        const size_t padding = rv::scene_buffer_size - offset;
        TextInput input(std::string(padding, '\n') + tail);
        EXPECT_EQ(input.token(), "alpha") << offset;
        EXPECT_EQ(input.token(), "\"be ta\"") << offset;
        float numbers[5] = {};
        for (size_t i = 0; i < 5; ++i) {
            if (rv::readPlainFloats(input.file, numbers + i, 1) == 0)
                numbers[i] = float(atof(input.token().c_str()));
        }
        const float wanted[] = { 1.5f, -2, 300, 40, 5 };
        EXPECT_EQ(0, memcmp(numbers, wanted, sizeof wanted)) << offset;
        EXPECT_EQ(input.token(), "omega") << offset;
        EXPECT_EQ(rv::scene_file_line, int(padding) + 1) << offset;
        EXPECT_EQ(input.token(), "") << offset;
        EXPECT_TRUE(rv::atEnd(input.file)) << offset;
    }
}

TEST_F(SceneFiles, an_input_of_a_whole_number_of_buffers_ends)
{
    TextInput input(std::string(2 * rv::scene_buffer_size, ' '));
    EXPECT_EQ(input.token(), "");
    EXPECT_TRUE(rv::atEnd(input.file));
}

// ---- Numbers ----

// The bits of every number in a text of blanks and tokens, by the fast way where it goes.
template <class Number, class Read, class Convert>
static std::vector<Number> readAll(const std::string& text, Read read, Convert convert)
{
    TextInput input(text);
    std::vector<Number> all;
    for (;;) {
        Number chunk[64];
        const size_t count = read(input.file, chunk, 64);
        all.insert(all.end(), chunk, chunk + count);
        if (count > 0)
            continue;
        const std::string token = input.token();
        if (token.empty())
            return all;
        all.push_back(convert(token.c_str()));
    }
}

// Texts like numbers: plain ones, ones at the limits, and ones that only look like them.
static std::string randomNumber(std::mt19937& random)
{
    const auto pick = [&](unsigned n) { return unsigned(random() % n); };
    const auto digits = [&](unsigned n) {
        std::string text;
        for (unsigned i = 0; i < n; ++i)
            text.push_back(char('0' + pick(10)));
        return text;
    };
    static const char* const odd[] = {
        "inf",
        "-inf",
        "nan",
        "-nan",
        "infinity",
        "0x1p3",
        "0x1.8p-4",
        "-0",
        "-0.0",
        "+5",
        ".",
        "-",
        "+",
        "e5",
        "1e",
        "1e+",
        "1e400",
        "-1e400",
        "1e-400",
        "4.9e-324",
        "2.4703e-324",
        "1e-45",
        "7e-46",
        "1.",
        ".5",
        "-.5",
        "1.2.3",
        "1,5",
        "12abc",
        "0x",
        "1e5x",
        "--3",
        "3.4e38",
        "3.5e38",
        "99999999999999999999",
        "2147483648",
        "-2147483649",
        "4294967295",
        "4294967296",
        "9223372036854775807",
        "9223372036854775808",
        "-9223372036854775809",
        "00000000000000000000000000001",
        "0.000000000000000000000000000000000000000000000000000001",
        "123456789012345678901234567890",
        "0.1e1000000000000",
        "1e-1000000000000",
        "9007199254740993",
        "9007199254740992e22",
        "9007199254740991e23",
        "8.5e22",
        "1e22",
        "1e23",
    };
    switch (pick(12)) {
    case 0: return odd[pick(std::size(odd))];
    case 1: return digits(1 + pick(40));
    case 2: return std::string(1, pick(2) ? '-' : '+').append(digits(1 + pick(22)));
    case 3: return digits(pick(25)) + "." + digits(pick(25)) + "e-" + digits(1 + pick(3));
    case 4: return digits(1 + pick(4)) + "e" + (pick(2) ? "+" : "") + digits(1 + pick(3));
    case 5: return formatted("%.17g", std::bit_cast<double>(uint64_t(random()) << 32 | random()));
    case 6: return formatted("%.9g", double(std::bit_cast<float>(uint32_t(random()))));
    case 7: return formatted("%a", double(std::bit_cast<float>(uint32_t(random()))));
    case 8: return formatted("%d", int(random()));
    case 9: { // halfway between two floats, and beside it
        const uint32_t bits = uint32_t(random()) & 0x7f7fffff;
        const double middle =
            (double(std::bit_cast<float>(bits)) + double(std::bit_cast<float>(bits + 1))) / 2;
        return formatted("%.*g", int(15 + pick(12)), middle);
    }
    default:
        return std::string(pick(3) ? "" : "-")
            .append(digits(1 + pick(3)))
            .append(".")
            .append(digits(1 + pick(8)));
    }
}

// Every separator that may stand between numbers.
static std::string randomBlank(std::mt19937& random)
{
    static const char* const blanks[] = { " ",    "\t", "\n", "\r\n",          "  ",
                                          " \n ", " ",  " ",  " # comment 1\n" };
    return blanks[random() % std::size(blanks)];
}

static uint32_t bitsOf(float f) { return f != f ? 0x7fc00000 : std::bit_cast<uint32_t>(f); }

TEST_F(SceneFiles, numbers_are_what_atof_and_atoi_make_of_their_texts)
{
    std::mt19937 random(20240607);
    std::vector<std::string> tokens(1200000);
    std::string text;
    for (std::string& token : tokens) {
        token = randomNumber(random);
        text += token + randomBlank(random);
    }
    const auto floats = readAll<float>(text, rv::readPlainFloats, [](const char* token) {
        return float(rv::textToDouble(token));
    });
    const auto integers = readAll<int32_t>(text, rv::readPlainIntegers, rv::textToInteger);
    const auto small = readAll<uint8_t>(text, rv::readPlainBytes, [](const char* token) {
        return uint8_t(rv::textToInteger(token));
    });
    ASSERT_EQ(floats.size(), tokens.size());
    ASSERT_EQ(integers.size(), tokens.size());
    ASSERT_EQ(small.size(), tokens.size());
    for (size_t i = 0; i < tokens.size(); ++i) {
        const char* const token = tokens[i].c_str();
        ASSERT_EQ(bitsOf(floats[i]), bitsOf(float(atof(token)))) << token;
        ASSERT_EQ(integers[i], atoi(token)) << token;
        ASSERT_EQ(unsigned(integers[i]), unsigned(atol(token))) << token;
        ASSERT_EQ(small[i], uint8_t(atoi(token))) << token;
    }
}

TEST_F(SceneFiles, plain_numbers_go_the_fast_way_and_others_do_not)
{
    static const struct {
        const char* text;
        size_t count;
    } rows[] = {
        { "1 -2.5 +3 4e2 5E-1 .5 1.\n0.12345678901234567 ", 8 },
        { "1\r\n2\r\n", 2 },
        { "1\r2 ", 0 },       // joined to 12
        { "1 2 # c\n3 ", 2 }, // a comment
        { "1 2", 1 },         // the end may come in the middle of a token
        { "inf 1 ", 0 },      //
        { "0x10 1 ", 0 },     //
        { "\"1\" ", 0 },      //
        { "1e400 ", 0 },      // beyond the range
        { "- 1 ", 0 },        //
    };
    for (const auto& row : rows) {
        TextInput input(row.text);
        rv::refill(input.file);
        float numbers[16];
        EXPECT_EQ(rv::readPlainFloats(input.file, numbers, 16), row.count) << row.text;
    }
}

TEST_F(SceneFiles, numbers_as_long_as_a_token_that_is_cut_go_the_slow_way)
{
    for (const size_t length : { 32766u, 32767u, 32768u, 40000u }) {
        const std::string number = "1." + std::string(length - 2, '0');
        TextInput input(number + " 2 ");
        rv::refill(input.file);
        float numbers[2];
        EXPECT_EQ(rv::readPlainFloats(input.file, numbers, 2), length < 32767 ? 2u : 0u) << length;
    }
    const std::string too_long = "1." + std::string(32765, '0') + "7"; // by the 7
    EXPECT_EQ(problemsOf("sphere { name s center " + too_long + " 2 3 }"),
              "string longer than 32768 characters | s.3: unknown parameter type");
    EXPECT_EQ(value("s", "center"), "POINT 1x1: 1 7 2");
}

// ---- Opening and closing ----

TEST_F(SceneFiles, nothing_opens_without_a_name_or_a_known_mode)
{
    const std::string name = write("a.rvs", "x");
    EXPECT_EQ(RvRVSOpenFile(nullptr, "r"), nullptr);
    EXPECT_EQ(RvRVSOpenFile(name.c_str(), nullptr), nullptr);
    EXPECT_EQ(RvRVSOpenFile(name.c_str(), "a"), nullptr);
    EXPECT_EQ(RvRVSOpenFile(path("none.rvs").c_str(), "r"), nullptr);
    EXPECT_EQ(RvRVSOpenFile(folder.string().c_str(), "r"), nullptr);
    EXPECT_EQ(takeProblem(), "");
}

static std::string contentsOf(const std::string& name)
{
    RtRVSFile* const file = RvRVSOpenFile(name.c_str(), "r");
    if (!file)
        return "not opened";
    std::string text;
    for (char c; (c = rv::readChar(file)) != rv::end_marker;)
        text.push_back(c);
    EXPECT_EQ(RvRVSCloseFile(file, "r"), 0);
    return text;
}

TEST_F(SceneFiles, a_compressed_file_reads_like_a_plain_one)
{
    const std::string name = path("written.rvs.gz");
    RtRVSFile* const file = RvRVSOpenFile(name.c_str(), "w");
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->is_compressed);
    EXPECT_FALSE(file->is_stream);
    EXPECT_EQ(gzputs(file->gzip, "some text"), 9);
    EXPECT_EQ(RvRVSCloseFile(file, "w"), 0);
    EXPECT_EQ(contentsOf(name), "some text");
    std::ifstream raw(name, std::ios::binary);
    EXPECT_EQ(raw.get(), 0x1f);
}

TEST_F(SceneFiles, other_names_are_written_plainly)
{
    const std::string name = path("written.rvs");
    RtRVSFile* const file = RvRVSOpenFile(name.c_str(), "w");
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(file->is_compressed);
    fputs("some\r\ntext", file->plain);
    EXPECT_EQ(RvRVSCloseFile(file, "w"), 0);
    EXPECT_EQ(contentsOf(name), "some\ntext"); // carriage returns are never seen
}

TEST_F(SceneFiles, a_pipe_is_read_and_written)
{
    EXPECT_EQ(contentsOf("|echo hello"), "hello\n");
    const std::string name = path("piped");
    RtRVSFile* const file = RvRVSOpenFile(("|cat > " + name).c_str(), "w");
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->is_stream);
    fputs("through", file->plain);
    EXPECT_EQ(RvRVSCloseFile(file, "w"), 0);
    EXPECT_EQ(contentsOf(name), "through");
}

TEST_F(SceneFiles, required_a_failed_pipe_leaves_its_record_to_the_caller)
{
    RtRVSFile* const file = RvRVSOpenFile("|exit 3", "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(rv::readChar(file), rv::end_marker);
    EXPECT_EQ(RvRVSCloseFile(file, "r"), -1);
    EXPECT_STREQ(file->file_name, "|exit 3");
    RvRVSDestroyFile(file);
}

TEST_F(SceneFiles, a_pipe_that_cannot_be_opened_is_reported)
{
    EXPECT_EQ(RvRVSOpenFile("|true", "nonsense"), nullptr);
    EXPECT_EQ(takeProblem(), "can't open pipe |true");
}

TEST_F(SceneFiles, a_damaged_file_is_reported)
{
    const std::string name = path("whole.gz");
    RtRVSFile* const file = RvRVSOpenFile(name.c_str(), "w");
    for (int i = 0; i < 10000; ++i)
        gzprintf(file->gzip, "# line %d\n", i * 7919);
    RvRVSCloseFile(file, "w");
    std::filesystem::resize_file(name, std::filesystem::file_size(name) / 2);
    EXPECT_EQ(RvRVSLoad(name.c_str()), 0);
    const std::string problem = takeProblem();
    EXPECT_EQ(problem.rfind(name + ": ", 0), 0u) << problem;
}

TEST_F(SceneFiles, an_exhausted_heap_is_reported)
{
    const std::string name = write("a.rvs", "sphere { name s radius 2 }");
    const auto problems = node_tools::problemsOfFailingHeap(
        [&] {
            if (RtRVSFile* const file = RvRVSOpenFile(name.c_str(), "r"))
                RvRVSCloseFile(file, "r");
        },
        takeProblems);
    EXPECT_TRUE(problems.count(name + ": can't allocate read buffer"));
    EXPECT_TRUE(problems.count("can't create input file " + name));
    EXPECT_TRUE(node_tools::anyReportsFailure(problems, "core\\src\\dotrvs", "RvRVSCreateFile"));
}
