#!/usr/bin/env python3
"""The one-shot switches of TarnwickHotFolder.exe run for real under Wine, as
an administrator runs them, each story in a fresh prefix: what they leave in
the registry and with the service control manager."""
import os
import subprocess
import unittest
from pathlib import Path

from registration import (APPID, EVENT_SOURCE, IID, LIBID, SERVICE, event_source, service_configuration,
                          service_tables, tables)
from winetest import Prefix, windows_path

SERVICE_CONFIG_TOOL = Path(os.environ["HF_BUILD_DIR"], "tests", "wine", "e2e", "hf_service_config.exe")
TYPE_LIBRARY_NAME = "TarnwickHotFolder 1.0 Type Library"
UNIVERSAL_MARSHALER = "{00020424-0000-0000-C000-000000000046}"


class RegistrationStory(unittest.TestCase):
    prefix_name = None

    @classmethod
    def setUpClass(cls):
        cls.prefix = Prefix.for_test(cls.prefix_name)
        cls.prefix.start()

    @classmethod
    def tearDownClass(cls):
        cls.prefix.stop()

    def run_switch(self, switch):
        run = self.prefix.run(self.prefix.executable, switch, timeout=120)
        self.assertEqual(run.exit_code, 0, f"{switch}: {run.events}")
        return run

    def assertTables(self, classes_root, expected):
        for key, tree in expected.items():
            self.assertEqual(self.prefix.reg_tree(classes_root + "\\" + key), tree, key)

    def assertNoTables(self, classes_root, expected):
        for key in expected:
            self.assertIsNone(self.prefix.reg_tree(classes_root + "\\" + key), key)

    def service_configuration(self):
        """The service's configuration and state; None when it is not installed."""
        result = subprocess.run(["wine", str(SERVICE_CONFIG_TOOL), SERVICE], env=self.prefix.environment(),
                                stdin=subprocess.DEVNULL, capture_output=True, timeout=60, check=False)
        if result.returncode != 0:
            return None
        lines = result.stdout.decode("utf-8", "replace").splitlines()
        configuration = dict(line.split("=", 1) for line in lines)
        if "dependency" not in configuration:
            # Wine's QueryServiceConfigW reports no dependencies; its service
            # manager keeps them where Windows does, in the service's key.
            key = self.prefix.reg_tree(r"HKLM\SYSTEM\CurrentControlSet\Services" "\\" + SERVICE)
            kind, names = key[""].get("DependOnService", (None, ""))
            if kind == "REG_MULTI_SZ" and names:
                configuration["dependency"] = names
        return configuration

    def type_library(self, classes_root):
        library = self.prefix.reg_tree(classes_root + r"\TypeLib" "\\" + LIBID)
        interface = self.prefix.reg_tree(classes_root + r"\Interface" "\\" + IID)
        if library is None:
            return None
        return {
            "name": library.get("1.0", {}).get(""),
            "file": library.get(r"1.0\409\win32", {}).get(""),
            "marshaler": (interface or {}).get("ProxyStubClsid32", {}).get(""),
            "library": (interface or {}).get("TypeLib", {}),
        }


class ServiceRegistration(RegistrationStory):
    prefix_name = "registration_service"

    def assertRegisteredAsService(self, executable):
        self.assertTables("HKCR", service_tables(executable))
        self.assertEqual(self.prefix.reg_tree(EVENT_SOURCE), event_source(executable))
        self.assertEqual(self.type_library("HKCR"), {
            "name": ("REG_SZ", TYPE_LIBRARY_NAME), "file": ("REG_SZ", executable),
            "marshaler": ("REG_SZ", UNIVERSAL_MARSHALER),
            "library": {"": ("REG_SZ", LIBID), "Version": ("REG_SZ", "1.0")}})
        configuration = self.service_configuration()
        self.assertIsNotNone(configuration, "the service is installed")
        self.assertEqual({k: v for k, v in configuration.items() if k != "state"}, service_configuration(executable))

    def test_service_then_regserver_then_unregserver(self):
        executable = self.prefix.executable

        self.run_switch("-Service")
        self.assertRegisteredAsService(executable)

        # Twice: the service is deleted and created again, and all ends the same.
        self.run_switch("-Service")
        self.assertRegisteredAsService(executable)

        # A plain local server: the service and LocalService go, the rest stays.
        self.run_switch("-RegServer")
        self.assertIsNone(self.service_configuration())
        expected = service_tables(executable)
        del expected["AppID\\" + APPID][""]["LocalService"]
        self.assertTables("HKCR", expected)

        # Unregistered: the tables and the type library go, the event source stays.
        self.run_switch("-UnregServer")
        self.assertNoTables("HKCR", tables(executable))
        self.assertIsNone(self.type_library("HKCR"))
        self.assertIsNotNone(self.prefix.reg_tree(r"HKCR\AppID"), "the kept keys stay")
        self.assertIsNotNone(self.prefix.reg_tree(r"HKCR\CLSID"), "the kept keys stay")
        self.assertEqual(self.prefix.reg_tree(EVENT_SOURCE), event_source(executable))


class PerUserRegistration(RegistrationStory):
    prefix_name = "registration_per_user"

    def test_per_user_switches_write_only_the_users_classes(self):
        executable = self.prefix.executable
        self.run_switch("-RegServerPerUser")

        self.assertTables(r"HKCU\Software\Classes", tables(executable))
        for key, tree in tables(executable).items():
            machine = self.prefix.reg_tree(r"HKLM\Software\Classes" "\\" + key) or {}
            self.assertEqual({path: values for path, values in machine.items() if values}, {},
                             f"{key}: no value of the tables under the machine's classes")
        self.assertIsNone(self.service_configuration())
        self.assertIsNone(self.prefix.reg_tree(EVENT_SOURCE))

        self.run_switch("-UnregServerPerUser")
        self.assertNoTables(r"HKCU\Software\Classes", tables(executable))

    def test_per_user_type_library_goes_to_the_users_classes(self):
        self.run_switch("-RegServerPerUser")
        user = self.type_library(r"HKCU\Software\Classes")
        machine = self.type_library(r"HKLM\Software\Classes")
        if user is None and machine is not None:
            self.skipTest("Wine's RegisterTypeLibForUser registers the library for the whole machine "
                          "(tests/wine/README.md)")
        self.assertEqual(user["file"], ("REG_SZ", self.prefix.executable))
        self.assertIsNone(machine)


if __name__ == "__main__":
    unittest.main()
