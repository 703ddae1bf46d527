#pragma once

#include <string>

/// A throwaway certificate authority and two server certificates it signed, made with the openssl tool in
/// a temporary directory the first time a test asks, and removed when the test program ends.
struct TestCertificates {
    std::string caFile;         ///< the authority's certificate (PEM): what a client is told to trust
    std::string serverKey;      ///< the private key of both server certificates
    std::string loopbackCert;   ///< for IP 127.0.0.1 and DNS localhost
    std::string otherHostCert;  ///< for DNS service.example only: a host-name mismatch on 127.0.0.1

    /// The shared set; throws std::runtime_error when the openssl tool cannot make it.
    static const TestCertificates& shared();
};
