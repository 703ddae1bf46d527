#include "TestCertificates.h"

#include "ChildProcess.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

constexpr const char* kCurve = "-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes";

void run(const std::string& command) {
    if (!runCommand(command + " >/dev/null 2>&1")) throw std::runtime_error("openssl failed: " + command);
}

TestCertificates make(const std::string& dir) {
    TestCertificates made{dir + "/ca.pem", dir + "/server.key", dir + "/loopback.pem", dir + "/other.pem"};

    run(std::string("openssl req -x509 ") + kCurve + " -keyout " + dir + "/ca.key -out " + made.caFile +
        " -days 2 -subj '/CN=VLMSDK Test CA' -addext basicConstraints=critical,CA:TRUE"
        " -addext keyUsage=critical,keyCertSign");
    run(std::string("openssl req ") + kCurve + " -keyout " + made.serverKey + " -out " + dir +
        "/server.csr -subj /CN=test-server");
    const std::pair<std::string, std::string> leaves[] = {
        {made.loopbackCert, "subjectAltName=IP:127.0.0.1,DNS:localhost"},
        {made.otherHostCert, "subjectAltName=DNS:service.example"},
    };
    for (const auto& [certificate, names] : leaves) {
        const std::string extensions = certificate + ".ext";
        std::ofstream(extensions) << names << "\n";
        run("openssl x509 -req -in " + dir + "/server.csr -CA " + made.caFile + " -CAkey " + dir +
            "/ca.key -CAcreateserial -days 2 -out " + certificate + " -extfile " + extensions);
    }
    return made;
}

}  // namespace

const TestCertificates& TestCertificates::shared() {
    // The directory goes when the test program ends.
    struct Holder {
        std::string dir;
        TestCertificates certificates;
        Holder() {
            char pattern[] = "/tmp/vlmsdk-certs-XXXXXX";
            if (!::mkdtemp(pattern)) throw std::runtime_error("cannot make a temporary directory");
            dir = pattern;
            certificates = make(dir);
        }
        ~Holder() {
            std::error_code ignored;
            std::filesystem::remove_all(dir, ignored);
        }
    };
    static const Holder holder;
    return holder.certificates;
}
