<?xml version="1.0"?>
<?CDF VERSION="1.5"?>
<DEFINITION>
<SOFTPKG NAME="{6F1C5A2E-3B7D-4E0A-9C52-1D8E4F7A2B10}" VERSION="1.0" TYPE="VISIBLE">
	<TITLE>Hello</TITLE>
	<ABSTRACT>A greeting program and its settings.</ABSTRACT>
	<IMPLEMENTATION>
		<CODEBASE FILENAME="hello-1.0/hello" TARGET="/usr/local/bin/hello" PERMISSIONS="rwxr-xr-x"/>
		<MERGEINI TARGET="/etc/kx/hello.ini"><![CDATA[[Hello]
Greeting=Hello from the controller
]]>
		</MERGEINI>
	</IMPLEMENTATION>
</SOFTPKG>
</DEFINITION>
