#include "cli/ToolchainInfo.h"

#include "cli/JsonLine.h"
#include "image/AelfImage.h"

#include <cstdio>

namespace {

struct Field {
  const char* name;
  uint32_t offset;
};

const Field fields[] = {
    {"entry", headerEntry},
    {"loop", headerLoop},
    {"hGroupsTable", headerHGroupsTable},
    {"iGroupsTable", headerIGroupsTable},
    {"remoteRegTables", headerRemoteRegTables},
    {"exeAddr", headerExeAddr},
    {"exeSize", headerExeSize},
    {"resAddr", headerResAddr},
    {"resSize", headerResSize},
};

const char* const segmentNames[] = {"program", "resources", "header"};

void printJson(const uint8_t* header, const AelfImage& image) {
  Json info;
  for (const Field& field : fields) info[field.name] = readLe32(header + field.offset);
  Json& segments = info["segments"] = Json::array();
  for (const AelfSegment& segment : image.segments)
    segments.push_back({{"address", segment.address}, {"size", segment.size}});
  printJsonLine(info);
}

void printTable(const uint8_t* header, const AelfImage& image) {
  for (const Field& field : fields) {
    const unsigned value = readLe32(header + field.offset);
    std::printf("%-16s 0x%08x  %u\n", field.name, value, value);
  }
  std::printf("\n%-10s %-10s  %s\n", "segment", "address", "size");
  for (int i = 0; i < 3; ++i)
    std::printf("%-10s 0x%08x  %u\n", segmentNames[i], static_cast<unsigned>(image.segments[i].address),
                static_cast<unsigned>(image.segments[i].size));
}

} // namespace

ExitCode printAelfInfo(const std::string& path, bool json) {
  AelfImage image;
  if (readAelfImage(path, image) != aelfOk) return ExitFailed;
  const uint8_t* header = image.segments[2].data;
  if (json)
    printJson(header, image);
  else
    printTable(header, image);
  std::fflush(stdout);
  return ExitOk;
}
