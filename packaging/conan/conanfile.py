"""The recipe for Conan 2, which builds the sources that it lies in:

    conan create packaging/conan
"""

import os
import re

from conan import ConanFile
from conan.errors import ConanInvalidConfiguration
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load, rmdir


class ZvqrnRecipe(ConanFile):
    name = "zvqrn"
    description = "Lets network scanners send push-scan requests to a PC"
    license = "LicenseRef-none-granted-yet"
    package_type = "shared-library"
    settings = "os", "arch", "compiler", "build_type"

    def _sources(self):
        return os.path.join(self.recipe_folder, "..", "..")

    def set_version(self):
        text = load(self, os.path.join(self._sources(), "CMakeLists.txt"))
        self.version = re.search(r"^project\(ZVQRN VERSION ([0-9.]+)", text, re.MULTILINE)[1]

    def export_sources(self):
        for pattern in (
            "CMakeLists.txt",
            "LICENCE.md",
            "cmake/*",
            "docs/man/*",
            "include/*",
            "src/*",
        ):
            copy(self, pattern, src=self._sources(), dst=self.export_sources_folder)

    def validate(self):
        if self.settings.os == "Windows" and self.settings.compiler != "gcc":
            raise ConanInvalidConfiguration("under Windows it is built with MinGW (compiler=gcc)")
        if self.settings.os not in ("Linux", "Windows"):
            raise ConanInvalidConfiguration("it is for Linux and Windows")

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["ZVQRN_BUILD_TOOLS"] = False
        toolchain.generate()
        CMakeDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()
        for folder in ("cmake", "pkgconfig"):  # which Conan makes itself
            rmdir(self, os.path.join(self.package_folder, "lib", folder))
        copy(
            self,
            "LICENCE.md",
            src=self.source_folder,
            dst=os.path.join(self.package_folder, "licenses"),
        )

    def package_info(self):
        self.cpp_info.libs = ["ZVQRN"]
        self.cpp_info.set_property("cmake_file_name", "ZVQRN")
        self.cpp_info.set_property("cmake_target_name", "ZVQRN::ZVQRN")
        self.cpp_info.set_property("pkg_config_name", "zvqrn")
