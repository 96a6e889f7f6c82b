#include "request-cutter.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "file-descriptor.h"

using tovaserverutil::FileDescriptor;
using namespace std::chrono_literals;

namespace {

constexpr std::chrono::milliseconds kNever = std::chrono::hours(1);

void NotReached() {
    ADD_FAILURE() << "the limit was not to be reached";
}

FileDescriptor Socket() {
    return FileDescriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

// Somebody on the loopback who answers nothing; made before the cutter, so left alone.
class RequestCutterTest : public testing::Test {
protected:
    RequestCutterTest() {
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof m_address;
        const bool made = bind(m_listener.get(), Address(), size) == 0 && listen(m_listener.get(), 8) == 0 &&
                          getsockname(m_listener.get(), Address(), &size) == 0;
        EXPECT_TRUE(made) << "nobody can listen on the loopback";
    }

    FileDescriptor Connect() {
        FileDescriptor end = Socket();
        const timeval patience{60, 0};
        setsockopt(end.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        connect(end.get(), Address(), sizeof m_address);  // may be cut, too
        return end;
    }

    // Waits for the other end; true when the connection has ended meanwhile.
    static bool EndsWhileRead(const FileDescriptor& connection) {
        char byte = 0;
        return read(connection.get(), &byte, 1) == 0 || errno != EAGAIN;
    }
    static bool HasEnded(const FileDescriptor& connection) {
        char byte = 0;
        return recv(connection.get(), &byte, 1, MSG_DONTWAIT) == 0 || errno != EAGAIN;
    }

private:
    sockaddr* Address() { return reinterpret_cast<sockaddr*>(&m_address); }

    sockaddr_in m_address{};
    FileDescriptor m_listener = Socket();
};

TEST_F(RequestCutterTest, RequestThatHangs_IsCutAfterItsLimit) {
    RequestCutter cutter({10ms, kNever, kNever}, NotReached);
    const FileDescriptor connection = Connect();
    const auto begin = RequestCutter::Clock::now();
    cutter.Start();
    EXPECT_TRUE(EndsWhileRead(connection));
    EXPECT_GE(RequestCutter::Clock::now() - begin, 10ms);
    EXPECT_EQ(cutter.WhatWasCut(), RequestCutter::Cut::kRequest);
}

TEST_F(RequestCutterTest, ConnectionMadeAfterwards_IsCutToo) {
    RequestCutter cutter({0ms, kNever, kNever}, NotReached);
    cutter.Start();
    EXPECT_TRUE(EndsWhileRead(Connect()));
    EXPECT_TRUE(EndsWhileRead(Connect()));
}

TEST_F(RequestCutterTest, WithoutAStart_NothingIsCut) {
    RequestCutter cutter({0ms, 0ms, 0ms}, NotReached);
    const FileDescriptor connection = Connect();
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(HasEnded(connection));
    EXPECT_EQ(cutter.WhatWasCut(), RequestCutter::Cut::kNothing);
}

TEST_F(RequestCutterTest, RequestWithoutConnection_IsNotToldAsCut) {
    std::atomic<bool> overdue{false};
    RequestCutter cutter({0ms, kNever, 60ms}, [&] { overdue = true; });
    const FileDescriptor unconnected = Socket();
    cutter.Start();
    const auto begin = RequestCutter::Clock::now();
    while (!overdue && RequestCutter::Clock::now() - begin < 60s) {
        std::this_thread::sleep_for(5ms);
    }
    EXPECT_TRUE(overdue);
    EXPECT_EQ(cutter.WhatWasCut(), RequestCutter::Cut::kNothing);
}

TEST_F(RequestCutterTest, LogOut_IsSparedForItsOwnLimit) {
    RequestCutter cutter({0ms, 300ms, kNever}, NotReached);
    const RequestCutter::LogOut logOut(cutter);
    const FileDescriptor connection = Connect();
    const auto begin = RequestCutter::Clock::now();
    cutter.Start();
    EXPECT_TRUE(EndsWhileRead(connection));
    EXPECT_GE(RequestCutter::Clock::now() - begin, 250ms);
    EXPECT_EQ(cutter.WhatWasCut(), RequestCutter::Cut::kLogOut);
}

TEST_F(RequestCutterTest, CutLogOut_IsNotForgotten) {
    RequestCutter cutter({0ms, 0ms, kNever}, NotReached);
    {
        const RequestCutter::LogOut logOut(cutter);
        cutter.Start();
        EXPECT_TRUE(EndsWhileRead(Connect()));
    }
    EXPECT_TRUE(EndsWhileRead(Connect())) << "cut as a request";
    EXPECT_EQ(cutter.WhatWasCut(), RequestCutter::Cut::kLogOut);
}

TEST_F(RequestCutterTest, ConnectionsOfWhoeverStartedTheProcess_AreLeftAlone) {
    const FileDescriptor inherited = Connect();
    RequestCutter cutter({0ms, kNever, kNever}, NotReached);
    cutter.Start();
    EXPECT_TRUE(EndsWhileRead(Connect()));
    EXPECT_FALSE(HasEnded(inherited));
}

TEST_F(RequestCutterTest, WhatNoCutEnds_IsTold) {
    std::atomic<bool> told{false};
    RequestCutter cutter({0ms, kNever, 60ms}, [&] { told = true; });
    const auto begin = RequestCutter::Clock::now();
    cutter.Start();
    while (!told && RequestCutter::Clock::now() - begin < 60s) {
        std::this_thread::sleep_for(5ms);
    }
    EXPECT_TRUE(told);
    EXPECT_GE(RequestCutter::Clock::now() - begin, 60ms);
}

}  // namespace
