// Reads the input as a scene file, then writes the scene.
//
// Kept out of reach: commands, libraries, devices and the one skip that by design never ends, that
// of a block of an unknown type which is not closed.
#include "fuzz_tools.h"

#include <string>
#include <string_view>

static bool isHarmless(std::string_view input)
{
    for (const char* refused : { "|", "shader_searchpath", "/dev", "/proc", "/sys", "..", "~" })
        if (input.find(refused) != std::string_view::npos)
            return false;
    // Compressed input would hide what it holds, and the end that is appended below.
    return input.substr(0, 2) != "\x1f\x8b";
}

// Ends whatever the input left open: a comment, a quoted text, a block, an array, an override. A
// quote inside of a word opens nothing.
static std::string closed(std::string_view input)
{
    std::string text(input);
    text += "\n x\" ";
    for (int i = 0; i < 40; ++i)
        text += "\nsphere { }";
    return text + "\n";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const fuzz::Folder folder;
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    if (!isHarmless(input))
        return 0;
    const std::string text = closed(input);
    folder.write("scene", text.data(), text.size());
    const std::string_view child = "lambert { name child Kd 0.5 }\n";
    folder.write("child", child.data(), child.size());

    const fuzz::SilentUniverse universe;
    RvRVSLoad("scene");
    RvRVSWrite("/dev/null", RV_NODE_ALL, false);
    return 0;
}
