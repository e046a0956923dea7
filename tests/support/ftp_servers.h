#pragma once

#include "support/peer_program.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

// Two FTP servers of the distribution (scripts/peers unpacks them), each set up to serve the folder "pub" of a scratch
// folder on a loopback port to one user, who may write below it, not in it.

inline std::string missing_for_ftp(const std::string& program)
{
  return geteuid() == 0 ? missing_program(program) : program + " needs root to serve a folder as its root";
}

inline void write_text(const std::string& path, const std::string& text)
{
  std::ofstream(path) << text;
  chmod(path.c_str(), 0600);
}

inline PeerSetup set_up_vsftpd(const std::string& scratch, int port)
{
  const std::string program = peer_program("/usr/sbin/vsftpd");
  mkdir((scratch + "/empty").c_str(), 0755);
  // Its anonymous user must have a home that exists, though that is not what is served.
  write_text(
      scratch + "/vsftpd.conf",
      "listen=YES\nbackground=NO\nlisten_address=127.0.0.1\nlisten_port=" + std::to_string(port) +
          "\npasv_address=127.0.0.1\nanonymous_enable=YES\nno_anon_password=NO\nanon_root=" + scratch +
          "/pub\nwrite_enable=YES\nanon_upload_enable=YES\n"
          "anon_mkdir_write_enable=YES\nanon_other_write_enable=YES\nanon_umask=022\nseccomp_sandbox=NO\n"
          "ftp_username=daemon\nsecure_chroot_dir=" +
          scratch + "/empty\n");
  return {missing_for_ftp(program), {program, scratch + "/vsftpd.conf"}, "anonymous", "recorder"};
}

inline PeerSetup set_up_pure_ftpd(const std::string& scratch, int port)
{
  const std::string program = peer_program("/usr/sbin/pure-ftpd");
  const std::string users = scratch + "/users";
  // User and password are "recorder"; files belong to nobody.
  write_text(users,
             "recorder:$1$ftp$neKG23Z.LN/nz2uWXpR5l/:65534:65534::" + scratch + "/pub/./::::::::::::\n");
  const std::string makeTable = peer_program("/usr/bin/pure-pw") + " mkdb " + users + ".pdb -f " + users;
  std::string missing = missing_for_ftp(program);
  if (missing.empty() && system(makeTable.c_str()) != 0) // NOLINT(cert-env33-c)
    missing = "pure-pw cannot make the table of users";
  return {missing,
          {program, "-S", "127.0.0.1," + std::to_string(port), "-P", "127.0.0.1", "-l",
           "puredb:" + users + ".pdb", "-u", "1", "-A", "-E", "-H", "-f", "none", "-g", scratch + "/pid"},
          "recorder",
          "recorder"};
}
