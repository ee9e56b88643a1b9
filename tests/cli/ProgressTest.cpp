// The progress display's lines, rendered from the ports' state without a terminal.
#include <gtest/gtest.h>

#include "cli/Progress.h"

TEST(ProgressLines, OneLinePerPortWithNamesPaddedToTheLongest) {
  EXPECT_EQ(progressLines({{"/dev/ttyUSB0", 512, 2048, 1.0}}),
            std::vector<std::string>{"/dev/ttyUSB0 [#####---------------]  25% 0.5/2.0 KiB 0.5 KiB/s ETA 0:03"});
  EXPECT_EQ(progressLines({{"dev1", 0, 1024, 0.0}, {"dev10", 1024, 1024, 2.0}, {"d", 300 * 1024, 400 * 1024, 3.0}}),
            (std::vector<std::string>{"dev1  [--------------------]   0% 0.0/1.0 KiB 0.0 KiB/s ETA -:--",
                                      "dev10 [####################] 100% 1.0/1.0 KiB 0.5 KiB/s ETA 0:00",
                                      "d     [###############-----]  75% 300.0/400.0 KiB 100.0 KiB/s ETA 0:01"}));
}
