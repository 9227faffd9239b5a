#pragma once

#include "fakes/TemporaryDirectory.h"
#include "linux/ChildProcess.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QString>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace cadora::test {

// A session bus of the test's own, on which nobody is at first and no service starts by itself.
class PrivateBus {
public:
    PrivateBus() { start(); }
    ~PrivateBus() {
        for (const QString& name : connections_) {
            QDBusConnection::disconnectFromBus(name);
        }
    }

    const std::string& address() const { return address_; }

    // A connection of its own, as if from another program.
    QDBusConnection connect() {
        static int count = 0;
        const QString name = QStringLiteral("test-%1").arg(++count);
        connections_.push_back(name);
        auto connection = QDBusConnection::connectToBus(QString::fromStdString(address_), name);
        if (!connection.isConnected()) {
            throw std::runtime_error("can't connect: " + connection.lastError().message().toStdString());
        }
        return connection;
    }

    void stop() { daemon_.reset(); }

    // A service that the bus would start by that program.
    void addService(const std::string& name, const std::string& program) {
        folder_.file("services/" + name + ".service",
                     "[D-BUS Service]\nName=" + name + "\nExec=" + program + "\n");
    }

private:
    void start() {
        std::filesystem::create_directory(folder_.path() / "services");
        const auto configuration = folder_.file(
            "bus.conf",
            "<busconfig><type>session</type><listen>unix:path=" + (folder_.path() / "bus").string() +
                "</listen><servicedir>" + (folder_.path() / "services").string() +
                "</servicedir><auth>EXTERNAL</auth><policy context=\"default\">"
                "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
                "<allow own=\"*\"/></policy></busconfig>");
        daemon_ = std::make_unique<ChildProcess>(ChildProcess::Setup{
            {"dbus-daemon", "--config-file=" + configuration.string(), "--nofork", "--print-address=1"}});
        address_ = daemon_->readLine();
        if (address_.empty()) {
            throw std::runtime_error("dbus-daemon did not start");
        }
    }

    TemporaryDirectory folder_;
    std::string address_;
    std::unique_ptr<ChildProcess> daemon_;
    std::vector<QString> connections_;
};

} // namespace cadora::test
