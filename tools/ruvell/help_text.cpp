// Layout of help and walks over the options.
#include "help_text.h"
#include <sstream>

namespace ruvell {

static const size_t name_width = 32; // columns for the names of options
static const size_t text_width = 48; // columns for what they do

static std::string wrapped(const std::string& text, size_t width)
{
    std::istringstream words(text);
    std::string result;
    size_t column = 0;
    for (std::string word; words >> word;) {
        const bool is_full = column > 0 && column + 1 + word.size() > width;
        if (column > 0)
            result += is_full ? "\n" : " ";
        column = (is_full || column == 0 ? 0 : column + 1) + word.size();
        result += word;
    }
    return result;
}

namespace {

class HelpFormatter : public CLI::Formatter {
public:
    std::string make_option_opts(const CLI::Option* option) const override
    {
        const std::string value = valueName(*option);
        return value.empty() ? "" : " " + value;
    }
    std::string make_option_desc(const CLI::Option* option) const override
    {
        return wrapped(option->get_description(), text_width);
    }
};

} // namespace

std::shared_ptr<CLI::Formatter> makeHelpFormatter()
{
    auto formatter = std::make_shared<HelpFormatter>();
    formatter->column_width(name_width);
    formatter->label("SUBCOMMAND", "COMMAND");
    formatter->label("Positionals", "Arguments");
    return formatter;
}

std::vector<const CLI::App*> visibleCommands(const CLI::App& application)
{
    return application.get_subcommands(
        [](const CLI::App* app) { return !app->get_group().empty(); });
}

std::vector<const CLI::Option*> namedOptions(const CLI::App& app)
{
    return app.get_options([](const CLI::Option* option) { return option->nonpositional(); });
}

std::vector<const CLI::Option*> positionals(const CLI::App& app)
{
    return app.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

std::vector<std::string> optionNames(const CLI::Option& option)
{
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

std::string valueName(const CLI::Option& option)
{
    const std::string type = option.get_type_name(); // checks append what they accept after a colon
    return option.get_items_expected_max() == 0 ? "" : type.substr(0, type.find(':'));
}

std::string positionalText(const CLI::Option& option)
{
    const std::string name =
        option.get_name(true) + (option.get_items_expected_max() > 1 ? "..." : "");
    return option.get_required() ? name : "[" + name + "]";
}

} // namespace ruvell
