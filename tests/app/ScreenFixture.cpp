#include "ScreenFixture.h"

std::vector<std::string> testPorts;
FakeLink* lastFakeLink = nullptr;
int FakeLink::destroyed = 0;
int FakeLink::destroyedAtLastCreate = 0;

std::unique_ptr<FlashLink> makeFakeLink(const char* portName) {
  FakeLink::destroyedAtLastCreate = FakeLink::destroyed;
  auto link = std::make_unique<FakeLink>(portName ? portName : "");
  lastFakeLink = link.get();
  return link;
}

namespace {
void listTestPorts(std::vector<std::string>& names) { names = testPorts; }
} // namespace

void ScreenTest::SetUp() {
  releaseSession(app);
  lastFakeLink = nullptr;
  FakeLink::destroyed = 0;
  programPath.clear();
  portNames.clear();
  deviceIds.clear();
  selectedPort = 0;
  flushState = FlushState{};
  testPorts = {"COM1", "COM7"};
  setSessionFactory(makeFakeLink);
  setPortLister(listTestPorts);
  h = std::make_unique<ScreenHarness>();
  h->screen.init(nullptr);
}

void ScreenTest::TearDown() {
  h.reset();
  releaseSession(app);
  setSessionFactory(nullptr);
  setPortLister(nullptr);
}

void ScreenTest::openAndDiscover(std::uint32_t id0, std::uint32_t id1, std::uint32_t id2) {
  h->frame();
  h->click("Open");
  ASSERT_EQ(mode(), StartScreenSpace::WaitDevices);
  link().answer(id0, id1, id2);
  testing::internal::CaptureStdout();
  h->frame();
  testing::internal::GetCapturedStdout();
  ASSERT_EQ(mode(), StartScreenSpace::DeviceReady);
}
