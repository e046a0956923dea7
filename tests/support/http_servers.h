#pragma once

#include "support/peer_program.h"

#include <fstream>
#include <string>

// Two HTTP servers of the distribution (scripts/peers unpacks them), each set up to serve the folder "www" of a
// scratch folder on a loopback port: /NAME as a file, /slow/NAME at 1 MB/s, /chunked.cgi as the file "file" in
// chunks, and /moved, a redirect (302) to /file.

inline PeerSetup set_up_nginx(const std::string& scratch, int port)
{
  const std::string program = peer_program("/usr/sbin/nginx");
  const std::string config = scratch + "/nginx.conf";
  const std::string address = "127.0.0.1:" + std::to_string(port);
  std::string temporary;
  for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
    temporary += std::string(kind) + "_temp_path " + scratch + "/tmp;\n";
  std::ofstream(config) << "daemon off;\nmaster_process off;\npid " << scratch
                        << "/nginx.pid;\nevents {}\nhttp {\naccess_log off;\n"
                        << temporary << "server {\nlisten " << address << ";\nroot " << scratch
                        << "/www;\nlocation /slow/ { alias " << scratch
                        << "/www/; limit_rate 1m; }\nlocation = /chunked.cgi { alias " << scratch
                        << "/www/file; ssi on; ssi_types *; }\nlocation = /moved { return 302 http://"
                        << address << "/file; }\n}\n}\n";
  return {missing_program(program), {program, "-e", "stderr", "-p", scratch, "-c", config}};
}

inline PeerSetup set_up_lighttpd(const std::string& scratch, int port)
{
  const std::string program = peer_program("/usr/sbin/lighttpd");
  const std::string config = scratch + "/lighttpd.conf";
  std::ofstream(config) << "server.bind = \"127.0.0.1\"\nserver.port = " << port
                        << "\nserver.modules = (\"mod_redirect\", \"mod_alias\", \"mod_cgi\")\n"
                        << "server.document-root = \"" << scratch
                        << "/www\"\nserver.stream-response-body = 1\n"
                        << "cgi.assign = (\".cgi\" => \"/bin/sh\")\nurl.redirect-code = 302\n"
                        << "url.redirect = (\"^/moved\" => \"http://127.0.0.1:" << port << "/file\")\n"
                        << "alias.url = (\"/slow/\" => \"" << scratch << "/www/\")\n"
                        << "$HTTP[\"url\"] =~ \"^/slow/\" { connection.kbytes-per-second = 1024 }\n";
  std::ofstream(scratch + "/www/chunked.cgi")
      << "printf 'Content-Type: application/octet-stream\\r\\n\\r\\n'; cat " << scratch << "/www/file\n";
  return {missing_program(program), {program, "-D", "-m", peer_program("/usr/lib/lighttpd"), "-f", config}};
}
