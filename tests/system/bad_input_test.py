#!/usr/bin/python3
"""Whatever is wrong with the command line, a file or an address ends the agent with one clear line
and the right exit status: 2 for what was typed, 1 for what is in the way."""

import os
import unittest

import support

USAGE, FAILURE = 2, 1


class BadInput(support.SystemTest):
    def end(self, *options):
        """Exit status and output of an agent that must end by itself."""
        agent = support.Process(self.directory, support.AGENT, *options)
        self.addCleanup(agent.close)
        return agent.ended(), agent.said()

    def assertEnds(self, status, pattern, *options):
        found, said = self.end(*options)
        self.assertRegex(said, rf"^norvek-snmpd: [^\n]*{pattern}[^\n]*\n$", options)
        self.assertEqual(found, status, (options, said))

    def testWrongOptionsAreUsageErrors(self):
        for pattern, *options in [
                ("--cell-id", "--cell-id", "0"), ("--cell-id", "--cell-id", "two"),
                ("--cell-id", "--cell-id", "4294967296"), ("--cell-id", "--cell-id"),
                ("--trace", "--trace", "Snmp"), ("--trace", "--trace", "Snmp=12"),
                ("--context", "--context", ""), ("given twice", "--context=a", "--context=a"),
                ("--context", "--context", "c" * 33),
                ("--config", "--listen", "udp:0.0.0.0:1161"), ("--config", "--listen", "1161"),
                ("exclude each other", "--agentx", "unix:/x", "--listen", "unix:/y"),
                ("Unix socket", "--config", "x", "--listen", "unix:/x"),
                ("--nonsense", "--nonsense"), ("stray", "stray"),
                ("--db.*nowhere", "--db", "nowhere"), ("--db.*state database", "--db", ""),
                ("--db.*http", "--db", "http://x"), ("--db", "--db", "file:"),
                ("--peer-db.*nowhere", "--peer-db", "nowhere"),
                *[(f"{option}: the value is empty", option, "")
                  for option in ("--peer-db", "--db-auth", "--listen", "--agentx", "--config",
                                 "--plugin")]]:
            self.assertEnds(USAGE, pattern, *options)

    def testFilesThatAreNotThereEndTheStart(self):
        for pattern, *options in [
                ("/nonexistent/x.so", "--plugin", "/nonexistent/x.so"),
                ("nothing.so", "--plugin", "nothing.so"),
                ("passwd: invalid ELF header", "--plugin", "/etc/passwd"),
                ("no plug-in brings the type", "--plugin", "/lib/x86_64-linux-gnu/libm.so.6"),
                ("/nonexistent/a.conf: No such file", "--config", "/nonexistent/a.conf"),
                ("/: Is a directory", "--config", "/"),
                ("/nonexistent", "--db", "file:/nonexistent/kavra.json"),
                ("is a directory", "--db", "file:/")]:
            self.assertEnds(FAILURE, pattern, "--listen", "udp:127.0.0.1:0", *options)

    def testAFileThatMayNotBeReadEndsTheStart(self):
        if os.geteuid() != 0:
            self.skipTest("only root may become another user")
        os.chmod(self.directory, 0o755)
        secret = self.write("access.conf", "rocommunity secret\n")
        os.chmod(secret, 0)
        agent = support.Process(self.directory, "setpriv", "--reuid=65534", "--clear-groups",
                                support.agentForAnyone(self.directory), "--config", secret)
        self.addCleanup(agent.close)
        self.assertEqual(agent.ended(), FAILURE)
        self.assertEqual(agent.said(), f"norvek-snmpd: {secret}: Permission denied\n")

    def testBadConfigurationLinesAreNamed(self):
        for line, pattern in [("rocomunity secret", "line 2: .*Unknown token: rocomunity"),
                              ("view all", "line 2: Error"), ("access x", "line 2: Error"),
                              ("createUser u SHA short", "passphrase"),
                              ("includeFile /nonexistent", "line 2: .*/nonexistent"),
                              ("agentaddress 161", "line 2: Error: agentaddress: .*--listen"),
                              ("agentuser nobody", "line 2: Error: agentuser"),
                              ("sysServices 200", "line 2: Error: sysServices")]:
            file = self.write("access.conf", f"rocommunity secret 127.0.0.1\n{line}\n")
            self.assertEnds(FAILURE, f"access.conf: .*{pattern}|access.conf: {pattern}", "--config",
                            file, "--listen", "udp:127.0.0.1:0")

    def testAddressesThatCannotBeHadAreNamed(self):
        access = self.write("access.conf", "rocommunity secret 127.0.0.1\n")
        for address, pattern in [("udp:127.0.0.1:99999", "not an address"),
                                 ("udp:192.0.2.77:1161", "Cannot assign requested address"),
                                 ("carrier-pigeon:7", "not an address")]:
            self.assertEnds(FAILURE, f"cannot listen on {address}: {pattern}", "--config", access,
                            "--listen", address)

    def testHelpAndVersionEndWell(self):
        status, said = self.end("--help")
        self.assertEqual(status, 0)
        for option in ("--cell-id", "--cell-type", "--db", "--peer-db", "--listen", "--agentx",
                       "--config", "--plugin", "--context", "--trace"):
            self.assertIn(option, said)
        status, said = self.end("--version")
        self.assertEqual(status, 0)
        self.assertRegex(said, r"^norvek-snmpd \d+\.\d+\.\d+\n$")


if __name__ == "__main__":
    unittest.main()
