#include "image/AelfImage.h"
#include "tests/image/AelfBytes.h"
#include "tests/linkmap/TestFiles.h"

#include <cstring>

namespace {

std::string areaBytes(std::size_t offset, std::size_t size) {
  return std::string(reinterpret_cast<const char*>(aelfImageArea()) + offset, size);
}

std::string segmentBytes(const AelfSegment& segment) {
  return std::string(reinterpret_cast<const char*>(segment.data), segment.size);
}

} // namespace

TEST(AelfReader, HeaderOnlyImageLoads) {
  const std::string path = testFolder() + "empty.alf";
  writeFile(path, aelfFile({}, "", ""));
  AelfImage image;
  ASSERT_EQ(readAelfImage(path, image), aelfOk);
  EXPECT_EQ(image.segments[0].size, 0u);
  EXPECT_EQ(image.segments[1].size, 0u);
  EXPECT_EQ(image.segments[2].address, 0x0803FE00u);
  EXPECT_EQ(image.segments[2].size, 64u);
  EXPECT_EQ(segmentBytes(image.segments[2]), aelfHeader({}));
}

TEST(AelfReader, SegmentsAreContiguousInTheArea) {
  AelfHeaderValues values;
  values.exeSize = 1000;
  values.resSize = 300;
  values.resAddr = 0x08036000;
  const std::string program = pattern(values.exeSize, 1);
  const std::string resources = pattern(values.resSize, 2);
  const std::string path = testFolder() + "image.alf";
  writeFile(path, aelfFile(values, program, resources));

  AelfImage image;
  ASSERT_EQ(readAelfImage(path, image), aelfOk);
  EXPECT_EQ(image.segments[0].address, 0x08004000u);
  EXPECT_EQ(image.segments[1].address, 0x08036000u);
  EXPECT_EQ(segmentBytes(image.segments[0]), program);
  EXPECT_EQ(segmentBytes(image.segments[1]), resources);
  // header | program | resources with no gap: whole 256-byte blocks read on into the next segment.
  EXPECT_EQ(image.segments[2].data, aelfImageArea());
  EXPECT_EQ(image.segments[0].data, aelfImageArea() + 64);
  EXPECT_EQ(image.segments[1].data, aelfImageArea() + 64 + 1000);
  EXPECT_EQ(areaBytes(0, 256), aelfHeader(values) + program.substr(0, 192));
  EXPECT_EQ(areaBytes(64 + 768, 256), program.substr(768) + resources.substr(0, 24));
}

TEST(AelfReader, HeaderFieldsAreLittleEndian) {
  std::string file = aelfFile({}, "", "");
  const char exeAddr[4] = {0x00, 0x40, 0x00, 0x08};
  file.replace(4 + 28, 4, exeAddr, 4);
  const std::string path = testFolder() + "le.alf";
  writeFile(path, file);
  AelfImage image;
  ASSERT_EQ(readAelfImage(path, image), aelfOk);
  EXPECT_EQ(image.segments[0].address, 0x08004000u);
}

TEST(AelfReader, ResourcesComeFromBehindTheProgramWhateverTheAddresses) {
  AelfHeaderValues values;
  values.exeAddr = 0x08030000; // above resAddr: addresses never choose file offsets
  values.resAddr = 0x08004000;
  values.exeSize = 5;
  values.resSize = 3;
  const std::string path = testFolder() + "swapped.alf";
  writeFile(path, aelfFile(values, "PPPPP", "RRR") + "trailing bytes are never read");
  AelfImage image;
  ASSERT_EQ(readAelfImage(path, image), aelfOk);
  EXPECT_EQ(segmentBytes(image.segments[0]), "PPPPP");
  EXPECT_EQ(segmentBytes(image.segments[1]), "RRR");
}

TEST(AelfReader, SecondReadReplacesTheFirst) {
  const std::string dir = testFolder();
  AelfHeaderValues first;
  first.exeSize = 10;
  AelfHeaderValues second;
  second.exeSize = 4;
  second.exeAddr = 0x08008000;
  writeFile(dir + "1.alf", aelfFile(first, "0123456789", ""));
  writeFile(dir + "2.alf", aelfFile(second, "abcd", ""));
  AelfImage a;
  AelfImage b;
  ASSERT_EQ(readAelfImage(dir + "1.alf", a), aelfOk);
  const uint8_t* firstData = a.segments[0].data;
  ASSERT_EQ(readAelfImage(dir + "2.alf", b), aelfOk);
  EXPECT_EQ(b.segments[0].address, 0x08008000u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(firstData), 4), "abcd");
}

TEST(AelfReader, OpenAndMagicFailures) {
  const std::string dir = testFolder();
  AelfImage image;
  startCapture();
  EXPECT_EQ(readAelfImage(dir + "missing.alf", image), aelfCannotOpen);
  EXPECT_EQ(endCapture(), ("Can't open aelf file '" + dir + "missing.alf'\n"));

  for (const char* magic : {"FLEA", "aelf", "AEL", ""}) {
    writeFile(dir + "bad.alf", std::string(magic) + aelfHeader({}));
    if (std::strlen(magic) < 4) writeFile(dir + "bad.alf", magic);
    startCapture();
    EXPECT_EQ(readAelfImage(dir + "bad.alf", image), aelfNotAelf) << magic;
    EXPECT_EQ(endCapture(), ("File '" + dir + "bad.alf' is not AELF file\n"));
  }
}

TEST(AelfReader, OversizedAndTruncatedImagesAreRefusedWithoutTouchingTheArea) {
  const std::string dir = testFolder();
  AelfHeaderValues good;
  good.exeSize = 300;
  good.resSize = 20;
  writeFile(dir + "good.alf", aelfFile(good, pattern(300, 5), pattern(20, 6)));
  AelfImage image;
  ASSERT_EQ(readAelfImage(dir + "good.alf", image), aelfOk);
  const AelfImage loaded = image;
  const std::string before = areaBytes(0, 64 + 320);

  AelfHeaderValues big;
  big.exeSize = 0x48000 - 64 - 100;
  big.resSize = 101;
  writeFile(dir + "big.alf", aelfFile(big, pattern(big.exeSize, 1), pattern(big.resSize, 2)));
  startCapture();
  EXPECT_EQ(readAelfImage(dir + "big.alf", image), aelfTooLarge);
  EXPECT_EQ(endCapture(), ("File '" + dir +
                           "big.alf' is too large: 294913 bytes of header, program and "
                           "resources, the image area holds 294912\n"));

  AelfHeaderValues huge; // sizes that wrap around in 32 bits
  huge.exeSize = 0xFFFFFFF0;
  huge.resSize = 0x100;
  writeFile(dir + "huge.alf", aelfFile(huge, "", ""));
  startCapture();
  EXPECT_EQ(readAelfImage(dir + "huge.alf", image), aelfTooLarge);
  EXPECT_NE(endCapture().find("is too large: 4294967600 bytes"), std::string::npos);

  AelfHeaderValues shortValues;
  shortValues.exeSize = 300;
  shortValues.resSize = 20;
  writeFile(dir + "short.alf", aelfFile(shortValues, pattern(300, 9), pattern(19, 9)));
  startCapture();
  EXPECT_EQ(readAelfImage(dir + "short.alf", image), aelfTruncated);
  EXPECT_EQ(endCapture(), ("File '" + dir + "short.alf' is truncated: 387 bytes, its header says 388\n"));

  writeFile(dir + "header.alf", "AELF" + aelfHeader({}).substr(0, 63));
  startCapture();
  EXPECT_EQ(readAelfImage(dir + "header.alf", image), aelfTruncated);
  EXPECT_EQ(endCapture(), ("File '" + dir + "header.alf' is truncated: 67 bytes, the header alone needs 68\n"));

  EXPECT_EQ(areaBytes(0, 64 + 320), before);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(image.segments[i].address, loaded.segments[i].address);
    EXPECT_EQ(image.segments[i].size, loaded.segments[i].size);
    EXPECT_EQ(image.segments[i].data, loaded.segments[i].data);
  }
}

TEST(AelfReader, ImageFillingTheWholeAreaLoads) {
  AelfHeaderValues values;
  values.exeSize = 0x48000 - 64 - 100;
  values.resSize = 100;
  const std::string path = testFolder() + "full.alf";
  writeFile(path, aelfFile(values, pattern(values.exeSize, 3), pattern(100, 4)));
  AelfImage image;
  ASSERT_EQ(readAelfImage(path, image), aelfOk);
  EXPECT_EQ(segmentBytes(image.segments[1]), pattern(100, 4));
}
