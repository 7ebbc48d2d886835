// A hub that takes one receiver at a time and sends it what the test says, right or wrong.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/linux/border.h"

class StandInHub {
 public:
  StandInHub() {
    mkdir(kMdxDirectory, 0770);
    unlink(kMdxHubPath);
    sockaddr_un address{AF_UNIX, {}};
    std::memcpy(address.sun_path, kMdxHubPath, sizeof(kMdxHubPath));
    listener_ = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(listen(listener_, 4), 0);
  }
  ~StandInHub() {
    close(listener_);
    hang_up();
  }
  StandInHub(const StandInHub&) = delete;
  StandInHub& operator=(const StandInHub&) = delete;

  mdx_packet_header_t take_subscription() {
    peer_ = accept(listener_, nullptr, nullptr);
    mdx_packet_header_t header{};
    EXPECT_EQ(recv(peer_, &header, sizeof(header), 0), static_cast<ssize_t>(sizeof(header)));
    return header;
  }
  void send_packet(mdx_packet_header_t header, const std::string& payload, int lie = 0) {
    header.length = static_cast<uint32_t>(static_cast<int>(payload.size()) + lie);
    std::string bytes(reinterpret_cast<const char*>(&header), sizeof(header));
    send_bytes(bytes + payload);
  }
  /// A receiver may have had enough and be gone.
  void send_bytes(const std::string& bytes) {
    const ssize_t sent = send(peer_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    EXPECT_TRUE(sent == static_cast<ssize_t>(bytes.size()) || errno == EPIPE);
  }
  void hang_up() {
    if (peer_ >= 0) close(peer_);
    peer_ = -1;
  }

 private:
  int listener_ = -1;
  int peer_ = -1;
};
