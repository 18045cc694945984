// A node and configd against a real broker that wants TLS and a password: with the right properties
// everything works, with wrong ones the log says what is wrong, and never a secret.

#include <gtest/gtest.h>
#include <sstream>
#include <string>

#include "e2e/kafka_site.h"
#include "support/eventually.h"
#include "support/shell.h"

namespace cv::test {
namespace {

constexpr const char* password = "Zu7=gh#eim";
constexpr const char* wrong_password = "Fa1sch=#es";

/// The node says this at error level, and neither it nor the library shows a secret, not even when
/// told to log all it does.
void expect_refusal(const std::string& broker, const std::string& properties,
                    const std::string& text) {
  KafkaSite site(broker, properties);
  site.start_node();
  // The library's own debug lines say it too, and before.
  const auto error_line_says_it = [&] {
    std::istringstream lines(site.node().output());
    for (std::string line; std::getline(lines, line);) {
      if (line.find("| ERROR   |") != line.npos && line.find(text) != line.npos) return true;
    }
    return false;
  };
  EXPECT_TRUE(eventually(error_line_says_it)) << site.node().output();
  site.stop_node();
  for (const char* secret : {password, wrong_password}) {
    EXPECT_EQ(site.node().output().find(secret), std::string::npos) << site.node().output();
  }
}

void expect_service(const std::string& broker, const std::string& properties) {
  KafkaSite site(broker, properties);
  const Recording prompt = english_prompts().front();
  site.add_recording(prompt);
  site.start_manager();
  site.start_node();
  ASSERT_TRUE(site.node_is_ready()) << site.node().output();
  EXPECT_TRUE(site.finds(prompt, 1));
  site.stop_node();
  for (ChildProcess* process : {&site.node(), &site.manager()}) {
    EXPECT_EQ(process->output().find(password), std::string::npos) << process->output();
  }
}

/// Makes keys and certificates in its own folder: a CA, a broker's key signed by it, and another CA.
constexpr const char* certificates_script = R"sh(set -e
cd "$(dirname "$0")"
key="-newkey rsa:2048 -nodes -days 2"
openssl req -x509 $key -keyout ca.key -out ca.pem -subj /CN=ca
openssl req -x509 $key -keyout other.key -out other.pem -subj /CN=other
openssl req $key -keyout broker.key -out broker.csr -subj /CN=127.0.0.1
printf 'subjectAltName=IP:127.0.0.1' >broker.ext
openssl x509 -req -in broker.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 \
  -extfile broker.ext -out broker.crt
openssl pkcs8 -topk8 -nocrypt -in broker.key >keystore.pem
cat broker.crt >>keystore.pem
)sh";

TEST(NodeKafkaSecurity, TlsAndPassword) {
  const TemporaryFolder folder;
  printed_by("bash " + folder.write("certificates.sh", certificates_script) + " 2>&1");
  const std::string users = std::string(" required username=\"broker\" password=\"") + password +
                            "\" user_broker=\"" + password + "\" user_node=\"" + password + "\";";
  const KafkaBroker broker(
      {"listener.security.protocol.map=PLAINTEXT:SASL_SSL,CONTROLLER:PLAINTEXT",
       "ssl.keystore.type=PEM", "ssl.keystore.location=" + folder / "keystore.pem",
       "ssl.truststore.type=PEM", "ssl.truststore.location=" + folder / "ca.pem",
       "sasl.enabled.mechanisms=PLAIN", "sasl.mechanism.inter.broker.protocol=PLAIN",
       "listener.name.plaintext.plain.sasl.jaas.config="
       "org.apache.kafka.common.security.plain.PlainLoginModule" +
           users});
  const auto properties = [&](const char* name, const std::string& authority,
                              const char* its_password) {
    return folder.write(name,
                        "security.protocol = SASL_SSL\nsasl.mechanism = PLAIN\ndebug = all\n"
                        "ssl.ca.location = " +
                            folder / authority +
                            "\nsasl.username = node\nsasl.password = " + its_password + "\n");
  };
  expect_refusal(broker.address(), properties("other_ca", "other.pem", password),
                 "SSL handshake failed");
  expect_refusal(broker.address(), properties("wrong", "ca.pem", wrong_password),
                 "SASL authentication error: Authentication failed: Invalid username or password");
  expect_service(broker.address(), properties("right", "ca.pem", password));

  KafkaSite without_file(broker.address(), properties("no_ca", "none.pem", password));
  without_file.start_node();
  EXPECT_EQ(without_file.node().wait_exit(), 1) << without_file.node().output();
  EXPECT_TRUE(without_file.node_logged("SERVICE: the Kafka clients could not be made"));
}

}  // namespace
}  // namespace cv::test
