<%@ page contentType="text/plain; charset=UTF-8" session="false" trimDirectiveWhitespaces="true"
         import="java.io.IOException, java.nio.file.Files, java.nio.file.NoSuchFileException, java.nio.file.Path" %>
<%--
  What the bootstrap service asks for: one line, "status: " and how the application is.

    ready       all is well
    not ready   busy, loading, under maintenance: whoever asks should ask again; nobody restarts it for that
    fatal       it will never be well: the start is given up

  A real application would look at its own parts here. This one reads the file that the system property
  velmora.statusFile names, so that an administrator can write "not ready" into it; without that file it is ready.
--%>
<%!
    private static final Path STATUS_FILE = Path.of(System.getProperty("velmora.statusFile", "status"));

    private void tell(String event) {
        getServletContext().log("dispatcher " + event);
    }

    public void jspInit() { tell("opened"); }

    // Called when Tomcat stops in order, not when its process is killed.
    public void jspDestroy() { tell("closed in order"); }

    private static String status() throws IOException {
        try {
            return Files.readString(STATUS_FILE).strip();
        } catch (NoSuchFileException nobodyObjects) {
            return "ready";
        }
    }
%>
<%
    String status = status();
    response.setStatus(status.equals("ready") ? 200 : 503);
    response.setHeader("Cache-Control", "no-store");
%>status: <%= status %>
