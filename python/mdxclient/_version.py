# SPDX-License-Identifier: Apache-2.0
"""The version of the package: the project's own."""

VERSION = "0.1.0"
