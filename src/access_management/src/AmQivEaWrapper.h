#ifndef QIV_ACCESS_MANAGEMENT_AM_QIV_EA_WRAPPER_H
#define QIV_ACCESS_MANAGEMENT_AM_QIV_EA_WRAPPER_H

#include <string>
#include <vector>

namespace QivAccessManagement {

// Runs the node's external adaptation program "qivea" as a child process, the only way the
// component talks to it, and maps its exit status to PymReturnT codes. Stateless: every
// operation is const, any object will do, and concurrent calls are independent. Every command
// line it logs has its bind passwords masked.
class AmQivEaWrapper {
 public:
  // Runs "qivea" (found on PATH) with args and blocks until it ended and its output was read; a
  // child still running after timeoutMs is killed together with its whole process group (and by
  // its pid, should it have left the group), and output that something the child started keeps
  // open is read no longer than that either. Results: 0 with output replaced by what the child
  // printed on standard output; -11 when the time-out fired and the child still exited 0; else
  // the mapped exit status (-1, -2, -9; a child the watchdog killed gives -1), with the child's
  // standard error logged (a warning for "unknown command", an error otherwise) and output
  // untouched; -1 as well when PATH holds no "qivea". Nothing the call started (descriptor,
  // thread, child) outlives it; only a descendant that left the child's process group can.
  // Poco::SystemException when no process could be started (none left) passes to the caller.
  // The whole value of a password argument ("--bind-password=...") is masked in every log line.
  int invoke(const std::vector<std::string>& args, std::string& output, unsigned timeoutMs) const;

  // "qivea spi-revision": revision gets the printed text, line end included.
  int getQiveaSpiRevision(std::string& revision, unsigned timeoutMs) const;
  // "qivea pso clear": path gets the printed directory with every line feed removed.
  int getQivPsoClearPath(std::string& path, unsigned timeoutMs) const;
  // "qivea authorization ldap search <arguments>", arguments being one single argument
  // (" --userId=... --filterType=..."); roles gets the comma-separated role names.
  int authorizationLdap(const std::string& arguments, std::string& roles, unsigned timeoutMs) const;
  // The same for arguments holding " --bindPassword=" followed by bindPassword: every log line
  // shows "****" for all of it, whatever it holds (blanks, "=", "*", an option's text).
  int authorizationLdap(const std::string& arguments, std::string& roles, unsigned timeoutMs,
                        const std::string& bindPassword) const;
  // Runs args (an "authentication ..." command line) and discards the output. Throws
  // Qiv::QivException, with the masked command line and the result, when the result is not 0.
  void configureAuthentication(const std::vector<std::string>& args, unsigned timeoutMs) const;

  // args joined by single blanks, bind passwords masked (the whole value of a "--bind-password="
  // argument); for logs and exception texts only.
  std::string serialize(const std::vector<std::string>& args) const;
  // Replaces the value of every "--bind-password=" and "--bindPassword=" option (up to the next
  // blank, carriage return or line feed) by "****": for text whose passwords are not known.
  void hidePassword(std::string& text) const;
  // PymReturnT of a qivea exit status: 0 -> 0, 2 -> -2, 8 -> -9, anything else -> -1.
  int map_qivea_rc_to_qiv_rc(int rc) const;

 private:
  // invoke, with the passwords that its logs must not show.
  int run(const std::vector<std::string>& args, const std::vector<std::string>& passwords, std::string& output,
          unsigned timeoutMs) const;
  std::string serialize(const std::vector<std::string>& args, const std::vector<std::string>& passwords) const;
  // Masks each of passwords where it follows a password option, and also wherever else it stands
  // when anywhere is set (text the child printed), then what hidePassword finds.
  void hidePasswords(std::string& text, const std::vector<std::string>& passwords, bool anywhere) const;
};

// True when address is the text of an IPv6 address (no brackets, no port).
bool isIPv6(const std::string& address);

}  // namespace QivAccessManagement

#endif
