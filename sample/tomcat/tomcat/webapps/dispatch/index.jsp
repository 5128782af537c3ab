<%@ page contentType="text/html; charset=UTF-8" session="false" trimDirectiveWhitespaces="true"
         import="java.lang.management.ManagementFactory, java.time.Duration" %>
<%
    Duration up = Duration.ofMillis(ManagementFactory.getRuntimeMXBean().getUptime());
    long process = ProcessHandle.current().pid();
    long megabytes = Runtime.getRuntime().maxMemory() >> 20;
%>
<!DOCTYPE html>
<html lang="en">
  <head><title>Sample dispatcher</title></head>
  <body>
    <h1>Sample dispatcher</h1>
    <p>Process <%= process %>, up for <%= up.toSeconds() %> seconds, may use <%= megabytes %> MiB of heap.</p>
    <p><a href="ready.jsp">What the bootstrap service asks</a></p>
  </body>
</html>
