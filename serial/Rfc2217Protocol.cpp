#include "serial/Rfc2217Protocol.h"

namespace rfc2217 {

namespace {

bool wantedByUs(std::uint8_t option) { return option == kOptBinary || option == kOptSga || option == kOptComPort; }

// The server may perform the same three; it offers the COM-PORT-OPTION itself at times.
bool wantedFromThem(std::uint8_t option) { return wantedByUs(option); }

// Bytes of value each acknowledgement carries; 0 for the server's other commands,
// which the client does not use.
std::size_t ackLength(std::uint8_t command) {
  switch (static_cast<Command>(command)) {
  case Command::setBaudRate: return 4;
  case Command::setDataSize:
  case Command::setParity:
  case Command::setStopSize:
  case Command::setControl:
  case Command::purgeData: return 1;
  }
  return 0;
}

} // namespace

std::vector<std::uint8_t> Protocol::greeting() {
  for (const std::uint8_t option : {kOptBinary, kOptSga}) {
    us_[option].asked = true;
    them_[option].asked = true;
  }
  us_[kOptComPort].asked = true;
  return {kIac,    kWill, kOptBinary, kIac,    kDo,  kOptBinary, kIac,       kWill,
          kOptSga, kIac,  kDo,        kOptSga, kIac, kWill,      kOptComPort};
}

void Protocol::appendData(std::vector<std::uint8_t>& out, const std::uint8_t* data, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    out.push_back(data[i]);
    if (data[i] == kIac) out.push_back(kIac);
  }
}

void Protocol::appendCommand(std::vector<std::uint8_t>& out, Command command, std::uint32_t value) {
  out.insert(out.end(), {kIac, kSb, kOptComPort, static_cast<std::uint8_t>(command)});
  std::uint8_t bytes[4] = {static_cast<std::uint8_t>(value >> 24), static_cast<std::uint8_t>(value >> 16),
                           static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
  if (command == Command::setBaudRate)
    appendData(out, bytes, 4);
  else
    appendData(out, bytes + 3, 1);
  out.insert(out.end(), {kIac, kSe});
}

void Protocol::feed(const std::uint8_t* in, std::size_t n, std::vector<std::uint8_t>& data) {
  data_ = &data;
  for (std::size_t i = 0; i < n && !broken_; ++i) {
    const std::uint8_t b = in[i];
    switch (state_) {
    case State::data:
      if (b == kIac)
        state_ = State::iac;
      else
        data.push_back(b);
      break;
    case State::iac:
      state_ = State::data;
      if (b == kIac) {
        data.push_back(kIac);
      } else if (b >= kWill && b <= kDont) {
        verb_ = b;
        state_ = State::option;
      } else if (b == kSb) {
        sub_.clear();
        state_ = State::sub;
      }
      // NOP, GA, AYT and the other one-byte commands (and a stray SE) carry nothing for us.
      break;
    case State::option:
      negotiate(verb_, b);
      state_ = State::data;
      break;
    case State::sub:
      if (b == kIac) {
        state_ = State::subIac;
      } else if (sub_.size() == kMaxSubnegotiation) {
        nonsense("a subnegotiation longer than " + std::to_string(kMaxSubnegotiation) + " bytes");
      } else {
        sub_.push_back(b);
      }
      break;
    case State::subIac:
      if (b == kSe) {
        state_ = State::data;
        subnegotiation();
      } else if (b == kIac && sub_.size() < kMaxSubnegotiation) {
        sub_.push_back(kIac);
        state_ = State::sub;
      } else if (b == kIac) {
        nonsense("a subnegotiation longer than " + std::to_string(kMaxSubnegotiation) + " bytes");
      } else {
        nonsense("Telnet command " + std::to_string(b) + " inside a subnegotiation");
      }
      break;
    }
  }
}

void Protocol::reply(std::uint8_t verb, std::uint8_t option) { replies_.insert(replies_.end(), {kIac, verb, option}); }

void Protocol::negotiate(std::uint8_t verb, std::uint8_t option) {
  const bool forUs = verb == kDo || verb == kDont;
  Side& side = forUs ? us_[option] : them_[option];
  const bool wanted = forUs ? wantedByUs(option) : wantedFromThem(option);
  const bool yes = verb == kDo || verb == kWill;
  const std::uint8_t agree = forUs ? kWill : kDo;
  const std::uint8_t decline = forUs ? kWont : kDont;
  const bool wasAsked = side.asked;
  side.asked = false;
  if (yes && wanted) {
    if (side.enabled) return;
    side.enabled = true;
    if (!wasAsked) reply(agree, option);
    if (forUs && option == kOptComPort) event(Event::Kind::comPortAccepted);
  } else if (yes) {
    reply(decline, option); // an option the client does not do: refused every time it is asked
  } else {
    const bool wasEnabled = side.enabled;
    side.enabled = false;
    if (wasEnabled) reply(decline, option);
    if (forUs && option == kOptComPort && (wasEnabled || wasAsked)) event(Event::Kind::comPortRefused);
  }
}

void Protocol::subnegotiation() {
  // Other options' subnegotiations, an empty one, and the server's notices
  // (signature, line and modem state, flow control) carry nothing for the client.
  if (sub_.size() < 2 || sub_[0] != kOptComPort || sub_[1] < kServerOffset) return;
  const std::uint8_t command = static_cast<std::uint8_t>(sub_[1] - kServerOffset);
  const std::size_t want = ackLength(command);
  if (want == 0) return;
  const std::size_t got = sub_.size() - 2;
  if (got != want) {
    nonsense("an acknowledgement of command " + std::to_string(command) + " with " + std::to_string(got) +
             " value bytes");
    return;
  }
  std::uint32_t value = 0;
  for (std::size_t i = 2; i < sub_.size(); ++i) value = (value << 8) | sub_[i];
  event(Event::Kind::ack, static_cast<Command>(command), value);
}

void Protocol::nonsense(const std::string& text) {
  broken_ = true;
  event(Event::Kind::nonsense, Command::setBaudRate, 0, text);
}

void Protocol::event(Event::Kind kind, Command command, std::uint32_t value, const std::string& text) {
  events_.push_back(Event{kind, command, value, text, data_->size()});
}

std::vector<std::uint8_t> Protocol::takeReplies() {
  std::vector<std::uint8_t> out;
  out.swap(replies_);
  return out;
}

std::vector<Event> Protocol::takeEvents() {
  std::vector<Event> out;
  out.swap(events_);
  return out;
}

} // namespace rfc2217
