// The daemon's log on a small file system: rotation and a full disk.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "unit.h"

namespace {

TEST(ScenarioLog, RotatesAndSurvivesFullDiskWithoutLosingRecords) {
    constexpr const char* MOUNT = "mount -t tmpfs -o size=12m v2x_test \"$0\" && "
                                  "head -c 10450000 /dev/zero > \"$0/spat_conv.log\" && exec \"$@\"";
    Unit unit;
    const std::string folder = unit.folder.path() + "/log";
    std::filesystem::create_directory(folder);
    unit.launcher = {"/usr/bin/unshare", geteuid() == 0 ? "-m" : "-rm", "/bin/sh", "-c", MOUNT, folder};
    unit.start({"-d", "7"});
    if (unit.daemon->wait(500) == 1) {
        GTEST_SKIP() << unit.err(); // no mount of one's own
    }
    ASSERT_EQ(unit.notify.receive(), "READY=1") << unit.err();
    const std::string seenFromHere = "/proc/" + std::to_string(unit.daemon->pid()) + "/root" + folder;
    const auto logSize = [&] { return std::filesystem::file_size(seenFromHere + "/spat_conv.log"); };
    unit.startStackSimulator({"--no-replies"});
    unit.startDevice("learner", 50);
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(seenFromHere + "/spat_conv.1.log"); }));

    const std::string filler = seenFromHere + "/filler";
    std::ofstream(filler) << std::string(12 << 20, 'x'); // until the disk is full
    EXPECT_TRUE(eventually([&] { return unit.err().find("No space left on device") != std::string::npos; }));
    const auto sizeWhenFull = logSize();
    std::filesystem::remove(filler);
    EXPECT_TRUE(eventually([&] { return logSize() > sizeWhenFull + 4096; }, 5000));

    const std::string sent = unit.endSimulator("learner");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(counted(unit.endStackSimulator(), "records"), counted(sent, "sent"));
    unit.daemon->signal(SIGTERM);
    EXPECT_EQ(unit.daemon->wait(20000), 0);
}

} // namespace
