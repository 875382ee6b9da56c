<?xml version="1.0"?>
<?CDF VERSION="1.5"?>
<DEFINITION>
<SOFTPKG NAME="{A3D94C71-52E8-4B1F-8E06-7C2B9F3D1E45}" VERSION="1.0" TYPE="VISIBLE">
	<TITLE>Greeting texts</TITLE>
	<ABSTRACT>Texts for Hello, unpacked from an archive, and a link to the text of the day.</ABSTRACT>
	<IMPLEMENTATION>
		<CODEBASE FILENAME="greeting-1.0/greeting.tar" TARGET="/usr/local/share/greeting" TYPE="TAR"/>
		<SYMLINK SOURCE="/usr/local/share/greeting/today.txt" LINK="/etc/kx/greeting-of-the-day"/>
		<DEPENDENCY>
			<SOFTPKG NAME="{6F1C5A2E-3B7D-4E0A-9C52-1D8E4F7A2B10}" VERSION="1.0">
				<TITLE>Hello</TITLE>
			</SOFTPKG>
		</DEPENDENCY>
	</IMPLEMENTATION>
</SOFTPKG>
</DEFINITION>
