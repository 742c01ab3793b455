// Files that appear whole or not at all, also when the process is interrupted.
#include "system/part_file.h"

#include "universe_fixture.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <stdlib.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

class PartFile : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        folder = fs::temp_directory_path() / ("ruvell_parts_" + std::to_string(getpid()));
        fs::create_directories(folder);
    }
    void TearDown() override
    {
        Universe::TearDown();
        fs::remove_all(folder);
    }

    // A part for that place, closed.
    fs::path closedPart(const char* name) const
    {
        fs::path part;
        FILE* const file = rv::createPart(folder / name, ".png", &part);
        EXPECT_TRUE(file);
        if (file)
            fclose(file);
        return part;
    }

    std::set<std::string> files() const
    {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder))
            names.insert(entry.path().filename().string());
        return names;
    }

    fs::path folder;
};

using Names = std::set<std::string>;

} // namespace

TEST_F(PartFile, a_finished_part_takes_its_place)
{
    const fs::path part = closedPart("a.png");
    EXPECT_EQ(files(), Names{ part.filename().string() });
    EXPECT_TRUE(rv::finishPart(part, folder / "a.png"));
    EXPECT_EQ(files(), Names{ "a.png" });
    EXPECT_TRUE(rv::movePart(closedPart("b.png"), folder / "b.png"));
    EXPECT_EQ(files(), (Names{ "a.png", "b.png" }));
}

TEST_F(PartFile, a_part_that_cannot_take_its_place_is_left_to_be_removed)
{
    const fs::path part = closedPart("a.png");
    EXPECT_FALSE(rv::movePart(part, folder / "nowhere" / "a.png"));
    EXPECT_TRUE(fs::exists(part));
    rv::removePart(part);
    EXPECT_EQ(files(), Names{});
}

TEST_F(PartFile, a_folder_that_takes_no_files_gives_no_part)
{
    fs::path part;
    EXPECT_EQ(rv::createPart(folder / "nowhere" / "a.png", ".png", &part), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(PartFile, parts_under_way_are_removed_when_the_process_ends_at_once)
{
    const auto leave = [this] {
        closedPart("lost.png");
        rv::movePart(closedPart("whole.png"), folder / "whole.png");
        closedPart("lost too.png");
        std::quick_exit(7);
    };
    EXPECT_EXIT(leave(), testing::ExitedWithCode(7), "");
    EXPECT_EQ(files(), Names{ "whole.png" });
}

TEST_F(PartFile, more_parts_than_are_remembered_can_be_made_and_finished)
{
    constexpr int count = 300;
    std::vector<fs::path> parts;
    for (int i = 0; i < count; ++i)
        parts.push_back(closedPart("a.png"));
    EXPECT_EQ(files().size(), size_t{ count });
    for (const fs::path& part : parts)
        rv::removePart(part);
    EXPECT_EQ(files(), Names{});
}
