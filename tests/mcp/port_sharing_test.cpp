#include "mcp/port_sharing.h"

#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mcp {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A socket of IPv4, bound to a port of its own.
class bound_socket {
 public:
    bound_socket() {
        address_.sin_family = AF_INET;
        socklen_t size = sizeof address_;
        bind(fd_, reinterpret_cast<sockaddr*>(&address_), size);
        getsockname(fd_, reinterpret_cast<sockaddr*>(&address_), &size);
    }
    ~bound_socket() { close(fd_); }
    bound_socket(const bound_socket&) = delete;
    bound_socket& operator=(const bound_socket&) = delete;

    void listen() const { ::listen(fd_, 1); }
    bool connect(const bound_socket& to) const {
        return ::connect(fd_, reinterpret_cast<const sockaddr*>(&to.address_), sizeof to.address_) == 0;
    }
    int port() const { return ntohs(address_.sin_port); }
    ino_t inode() const {
        struct stat file {};
        fstat(fd_, &file);
        return file.st_ino;
    }

 private:
    const int fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address_{};
};

TEST(PortSharing, FindsWhoListensAndNobodyElse) {
    const bound_socket listener;
    EXPECT_THAT(listening_inodes(false, listener.port()), IsEmpty());
    listener.listen();
    EXPECT_THAT(listening_inodes(false, listener.port()), ElementsAre(listener.inode()));
    EXPECT_THAT(listening_inodes(true, listener.port()), IsEmpty());
    const bound_socket client;
    ASSERT_TRUE(client.connect(listener));
    EXPECT_THAT(listening_inodes(false, client.port()), IsEmpty());
    EXPECT_THAT(listening_inodes(false, listener.port()), ElementsAre(listener.inode()));
}

TEST(PortSharing, OwnSocketIsNotAnotherProcess) {
    const bound_socket listener;
    listener.listen();
    EXPECT_FALSE(is_served_by_another_process(false, listener.port()));
}

}  // namespace
}  // namespace mcp
